// The version and the translations that all programs of this package share.
#pragma once

#include <libintl.h>

#include <clocale>

inline constexpr const char* kVersionLine =
    "Tarnwell Account Container (KIV) version 3.3.0 (build 18139)";
inline constexpr const char* kTextDomain = "kivctl";
inline constexpr const char* kCatalogues = "/usr/share/locale";

/// From now on gettext(3) translates into the caller's language.
inline void speakCallersLanguage() {
    ::setlocale(LC_ALL, "");
    ::bindtextdomain(kTextDomain, kCatalogues);
    ::textdomain(kTextDomain);
}
