// Files of one very long line and of a million lines, as a broken disk or a user who may write one
// could produce them.
#include <list>

#include "config/account_registry.h"
#include "config/configuration.h"
#include "fs/mount_table.h"
#include "libkiv/policy.h"
#include "measured.h"

namespace {

using Reader = void (*)(const std::string& path);

void readConfiguration(const std::string& path) {
    Configuration::read(path);
}

void readThePolicy(const std::string& path) {
    readPolicy(path);
}

void readRegistry(const std::string& path) {
    std::list<AccountEntry> accounts;
    readAccounts(accounts, "", path.c_str());
}

void readMounts(const std::string& path) {
    MountTable table;
    readMountTable(table, "/", path);
    table.contains("/nowhere");
}

/// `begin`, followed by units up to the length of the line.
void expectModestLine(Reader read, const std::string& begin, const std::string& unit) {
    const LargeFile file(begin + repeated(unit, kLineLength));
    expectModest(kLineLength, 1, [&] { read(file.path()); });
}

void expectModestLines(Reader read, const std::string& begin, const std::string& line) {
    const std::size_t length = kManyLines * line.size();
    const LargeFile file(begin + repeated(line, length));
    expectModest(length, kManyLines, [&] { read(file.path()); });
}

TEST(ALineOf64MebibytesOfTheConfiguration, IsReadAsAHeader) {
    expectModestLine(readConfiguration, "", "x");
    expectModestLine(readConfiguration, "", "x ");
    expectModestLine(readConfiguration, "allowlist ", "x");
    expectModestLine(readConfiguration, "allowlist ", "x ");
}

TEST(ALineOf64MebibytesOfTheConfiguration, IsReadAsAnItem) {
    expectModestLine(readConfiguration, "hide\n ", "x");
    expectModestLine(readConfiguration, "hide\n ", "x ");
    expectModestLine(readConfiguration, "hide\n ", " ");
}

TEST(ALineOf64MebibytesOfTheConfiguration, IsReadAsAFilter) {
    expectModestLine(readConfiguration, "filter\n ", "x");
    expectModestLine(readConfiguration, "filter\n /etc/group ", "x");
    expectModestLine(readConfiguration, "filter\n /etc/group ", "x|");
    expectModestLine(readConfiguration, "filter\n /etc/group ", "(");
    expectModestLine(readConfiguration, "filter\n /etc/group ", "${USER}");
}

TEST(ALineOf64MebibytesOfTheConfiguration, IsReadByTheLibrary) {
    expectModestLine(readThePolicy, "seccomp\n ", "x");
    expectModestLine(readThePolicy, "seccomp\n ", "x ");
    expectModestLine(readThePolicy, "seccomp\n allow ", "read ");
    expectModestLine(readThePolicy, "cap_add\n ", "x");
}

TEST(ALineOf64MebibytesOfTheRegistry, IsRead) {
    expectModestLine(readRegistry, "", "x");
    expectModestLine(readRegistry, "alice ", "x");
    expectModestLine(readRegistry, "alice ", "net= ");
    expectModestLine(readRegistry, "alice net=", "1.");
    expectModestLine(readRegistry, "", " ");
}

TEST(ALineOf64MebibytesOfTheMountTable, IsRead) {
    expectModestLine(readMounts, "", "x");
    expectModestLine(readMounts, "", "x ");
    expectModestLine(readMounts, "1 2 3:4 / /", "x");
    expectModestLine(readMounts, "1 2 3:4 / / rw ", "shared ");
    expectModestLine(readMounts, "", " ");
}

TEST(AMillionLinesOfTheConfiguration, AreRead) {
    expectModestLines(readConfiguration, "hide\n", " x\n");
    expectModestLines(readConfiguration, "", "allowlist /x\n");
    expectModestLines(readConfiguration, "filter\n", " /etc/group ^(root|${USER}):\n");
    expectModestLines(readConfiguration, "", "\n");
}

TEST(AMillionLinesOfTheConfiguration, AreReadByTheLibrary) {
    expectModestLines(readThePolicy, "seccomp\n", " allow ptrace\n");
    expectModestLines(readThePolicy, "cap_drop\n", " kill\n");
}

TEST(AMillionLinesOfTheRegistry, AreRead) {
    expectModestLines(readRegistry, "", "alice net=100.64.0.4/30\n");
    expectModestLines(readRegistry, "", "a\n");
}

TEST(AMillionLinesOfTheMountTable, AreRead) {
    expectModestLines(readMounts, "", "1 2 0:4 net:[1] /run/kiv/a@net rw - nsfs nsfs rw\n");
    expectModestLines(readMounts, "", "1 2 3:4 / / rw -\n");
}

}  // namespace
