// What the programs of this package have in common beside their code.
#pragma once

#include <libintl.h>

#include <clocale>

inline constexpr const char* kVersionLine =
    "Tarnwell Account Container (KIV) version 3.3.0 (build 18139)";
inline constexpr const char* kTextDomain = "kivctl";
inline constexpr const char* kCatalogues = "/usr/share/locale";

/// From now on gettext(3) answers in the caller's language.
inline void speakCallersLanguage() {
    ::setlocale(LC_ALL, "");
    ::bindtextdomain(kTextDomain, kCatalogues);
    ::textdomain(kTextDomain);
}
