// Single texts of 64 MiB: items of a configuration and arguments.
#include "cli/options.h"
#include "fs/path_expansion.h"
#include "libkiv/capabilities.h"
#include "measured.h"
#include "util/ip_network.h"
#include "util/reg_ex.h"
#include "util/string_util.h"

namespace {

void expectModestText(const std::string& unit, const std::function<void(std::string&)>& action) {
    std::string text = repeated(unit, kLineLength);
    expectModest(kLineLength, 1, [&] { action(text); });
}

TEST(ATextOf64Mebibytes, IsANetworkOrNot) {
    const auto parse = [](const std::string& text) { IpNetwork{text}; };
    expectModestText("1.", parse);
    expectModestText("1", parse);
}

TEST(ATextOf64Mebibytes, IsACapabilityOrNot) {
    expectModestText("kill", [](const std::string& text) { parseCapability(text); });
}

TEST(ATextOf64Mebibytes, IsExpandedAsAPath) {
    const auto expand = [](const std::string& text) { expandPaths("/", {text}); };
    expectModestText("x", expand);
    expectModestText("*", expand);
    expectModestText("*/", expand);
    expectModestText("[*", expand);
    expectModestText("/", [](const std::string& text) { expandPaths("/", {text + "*"}); });
}

TEST(ATextOf64Mebibytes, IsCompiledAsAnExpressionOrRefused) {
    const auto compile = [](const std::string& text) { RegEx{text, 0}; };
    for (const char* unit :
         {"x", "(", ")", "(x)", "x|", "x?", "x*", "*", "x{2}", "{2}", "[", "\\"}) {
        expectModestText(unit, compile);
    }
}

TEST(ATextOf64Mebibytes, IsTrimmedAndReplacedIn) {
    expectModestText(" ", [](std::string& text) { StringUtil::trim(text, " "); });
    expectModestText(" x", [](std::string& text) { StringUtil::trim(text, " "); });
    expectModestText("ab", [](std::string& text) { StringUtil::replaceAll("a", "c", text); });
}

TEST(ATextOf64Mebibytes, IsAnArgument) {
    const auto parse = [](std::string& text) {
        std::string program = "kivctl";
        char* arguments[] = {program.data(), text.data(), nullptr};
        parseArguments(2, arguments);
    };
    expectModestText("x", parse);
    expectModestText("%s", parse);
    expectModestText("-", parse);
}

}  // namespace
