// A registry file of a test's own.
#pragma once

#include <gtest/gtest.h>

#include <list>
#include <string>

#include "../fs/temporary_directory.h"
#include "config/account_registry.h"

class Registry : public testing::Test {
protected:
    /// The selected accounts as "name=net" texts; what was written to standard error in `errors`.
    std::list<std::string> read(const std::string& content, const std::string& user = "") {
        const std::string path = directory.write("/kiv.users", content);
        std::list<AccountEntry> entries;
        testing::internal::CaptureStderr();
        readAccounts(entries, user, path.c_str());
        errors = testing::internal::GetCapturedStderr();
        std::list<std::string> texts;
        for (const AccountEntry& entry : entries) {
            texts.push_back(entry.name + "=" + entry.net);
        }
        return texts;
    }

    TemporaryDirectory directory;
    std::string errors;
};
