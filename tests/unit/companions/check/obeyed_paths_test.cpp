// The paths that the host obeys, and users' homes. Links are in a temporary directory.
#include "companions/check/obeyed_paths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "../../fs/temporary_directory.h"

namespace {

using testing::Eq;
using testing::Optional;

class ObeyedPaths : public testing::Test {
protected:
    std::string link(const std::string& target, const std::string& name) {
        EXPECT_EQ(::symlink(target.c_str(), directory.at(name).c_str()), 0);
        return directory.at(name);
    }

    TemporaryDirectory directory;
};

TEST_F(ObeyedPaths, AreThoseOfJobsServicesAccountsAndPrograms) {
    for (const char* path : {"/etc/apt",
                             "/etc/logrotate.d",
                             "/etc/logrotate.conf",
                             "/etc/fstab",
                             "/etc/environment",
                             "/etc/aliases",
                             "/etc/postfix",
                             "/etc/exim4",
                             "/etc/apache2",
                             "/etc/nginx",
                             "/etc/php",
                             "/etc/mysql",
                             "/etc/letsencrypt",
                             "/etc/passwd",
                             "/etc/cron.d",
                             "/etc/tarnwell",
                             "/usr",
                             "/root",
                             "/dev/mem",
                             "/proc",
                             "/var/spool/cron"}) {
        EXPECT_TRUE(whyObeyed(path)) << path;
    }
}

TEST_F(ObeyedPaths, IncludeThoseBelowAndAbove) {
    EXPECT_THAT(whyObeyed("/etc/php/8.2/fpm/pool.d/www.conf"),
                Optional(Eq("the host's services read their configuration there")));
    EXPECT_TRUE(whyObeyed("/etc"));
    EXPECT_FALSE(whyObeyed("/etc/phpmyadmin"));
    EXPECT_FALSE(whyObeyed("/etc/hostname"));
    EXPECT_FALSE(whyObeyed("/srv"));
    EXPECT_FALSE(whyObeyed("/dev/null"));
}

TEST_F(ObeyedPaths, IncludeTheTargetsOfLinks) {
    EXPECT_THAT(whyObeyed(link("/etc/default", "/settings")),
                Optional(Eq("the host's services read their configuration there")));
    EXPECT_TRUE(whyObeyed(directory.at("/settings/absent")));
    EXPECT_THAT(whyObeyed(link("/", "/all")), Optional(Eq("it is the host's root directory")));
    EXPECT_FALSE(whyObeyed(link(directory.path, "/itself")));
    EXPECT_FALSE(whyObeyed(link("/nowhere/at/all", "/dangling")));
}

TEST_F(ObeyedPaths, AreNotTheDatabasesSocketAndTheNameServers) {
    EXPECT_TRUE(whyObeyed("/run/php"));
    EXPECT_FALSE(whyObeyed("/run/mysqld"));
    EXPECT_FALSE(whyObeyed("/run/mysqld/mysqld.sock"));
    EXPECT_FALSE(whyObeyed(link("/run/systemd/resolve/resolv.conf", "/resolv.conf")));
}

TEST_F(ObeyedPaths, AreResolvedAsFarAsTheyExist) {
    directory.makeDirectory("/real");
    link("real", "/link");
    EXPECT_EQ(resolved(directory.at("/link")), directory.at("/real"));
    EXPECT_EQ(resolved(directory.at("/link/absent/too")), directory.at("/real/absent/too"));
    EXPECT_EQ(resolved("/"), "/");
    EXPECT_EQ(resolved("/no-such-name"), "/no-such-name");
}

class Homes : public ObeyedPaths {
protected:
    Homes() {
        directory.makeDirectory("/home/alice");
        directory.makeDirectory("/var/www");
        link("home", "/people");
        passwords = directory.write("/passwd",
                                    "root:x:0:0::/root:/bin/sh\n"
                                    "www-data:x:33:33::" +
                                        directory.at("/var/www") +
                                        ":/bin/sh\n"
                                        "alice:x:1000:1000::" +
                                        directory.at("/people/alice") +
                                        ":/bin/sh\n"
                                        "nobody:x:65534:65534::/nonexistent:/bin/sh\n");
    }

    std::string passwords;
};

TEST_F(Homes, AreThePathOrBelowIt) {
    const UserHomes homes(passwords);
    EXPECT_THAT(homes.userIn(directory.at("/home")), Optional(Eq("alice")));
    EXPECT_THAT(homes.userIn(directory.at("/home/alice")), Optional(Eq("alice")));
    EXPECT_THAT(homes.userIn(directory.at("/people")), Optional(Eq("alice")));
    EXPECT_EQ(homes.userIn(directory.at("/home/alice/public")), std::nullopt);
    EXPECT_EQ(homes.userIn(directory.at("/home/al")), std::nullopt);
}

TEST_F(Homes, AreNotThoseOfTheSystem) {
    const UserHomes homes(passwords);
    EXPECT_EQ(homes.userIn("/root"), std::nullopt);
    EXPECT_EQ(homes.userIn(directory.at("/var/www")), std::nullopt);
    EXPECT_EQ(homes.userIn("/nonexistent"), std::nullopt);
}

TEST_F(Homes, AreNoneWithoutAPasswordFile) {
    EXPECT_EQ(UserHomes(directory.at("/absent")).userIn(directory.path), std::nullopt);
}

}  // namespace
