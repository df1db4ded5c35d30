// A configuration file of a test's own.
#pragma once

#include <gtest/gtest.h>

#include <list>
#include <stdexcept>
#include <string>

#include "../fs/temporary_directory.h"
#include "config/configuration.h"

class ConfigurationFile : public testing::Test {
protected:
    /// The file's content loaded; a failure's text, or "" for success.
    std::string load(const std::string& content) {
        try {
            Configuration::load(directory.write("/kiv.conf", content));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    TemporaryDirectory directory;
};
