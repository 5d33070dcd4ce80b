#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "ZelTestRoot.h"

namespace {

std::string readProperty(const char* name) {
    char value[PROPERTY_VALUE_MAX];
    property_get(name, value, "<unset>");
    return value;
}

// Runs `body` in a child process and returns its exit status.
template <typename Body>
int inChild(Body body) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

}  // namespace

TEST(ZelHostProperties, SharedBetweenProcessesUnderOneRootIsolatedBetweenRoots) {
    ZelTestRoot root;
    ASSERT_EQ(inChild([] { return property_set("vendor.zel.demo", "running"); }), 0);
    EXPECT_EQ(readProperty("vendor.zel.demo"), "running");

    // A child under another root neither sees nor disturbs this root's value.
    const std::string otherRoot = root.path() + "/other";
    EXPECT_EQ(inChild([&] {
                  setenv("ZELD_ROOT", otherRoot.c_str(), 1);
                  if (readProperty("vendor.zel.demo") != "<unset>") return 1;
                  return property_set("vendor.zel.demo", "elsewhere") == 0 ? 0 : 2;
              }),
              0);
    EXPECT_EQ(readProperty("vendor.zel.demo"), "running");

    ASSERT_EQ(property_set("vendor.zel.demo", ""), 0);
    EXPECT_EQ(readProperty("vendor.zel.demo"), "<unset>");  // empty reads as the default
}

TEST(ZelHostProperties, BooleanTextRules) {
    ZelTestRoot root;
    // {texts, read with default 0, read with default 1}: other texts give the default.
    const std::vector<std::tuple<std::vector<std::string>, int, int>> rules = {
            {{"1", "y", "yes", "true", "on"}, 1, 1},
            {{"0", "n", "no", "false", "off"}, 0, 0},
            {{"", "TRUE", "Yes", " true", "true ", "2", "ye", "onn", "Y", "0x1", "truE", "of", "N"}, 0, 1}};
    for (const auto& [texts, whenFalse, whenTrue] : rules) {
        for (const std::string& text : texts) {
            ASSERT_EQ(property_set("test.bool", text.c_str()), 0);
            EXPECT_EQ(property_get_bool("test.bool", 0), whenFalse) << "'" << text << "'";
            EXPECT_EQ(property_get_bool("test.bool", 1), whenTrue) << "'" << text << "'";
        }
    }
    EXPECT_EQ(property_get_bool("test.never.set", 1), 1);
    EXPECT_EQ(property_get_bool("test.never.set", 0), 0);
}

TEST(ZelHostProperties, RefusesLongValuesBadNamesAndReadOnlyRewrites) {
    ZelTestRoot root;
    const std::string longest(91, 'v');
    EXPECT_EQ(property_set("test.len", longest.c_str()), 0);
    EXPECT_EQ(readProperty("test.len"), longest);
    EXPECT_EQ(property_set("test.len", (longest + "v").c_str()), -1);
    EXPECT_EQ(readProperty("test.len"), longest);  // a refused write changes nothing

    for (const char* bad : {"", ".lead", "trail.", "a..b", "sl/ash", "sp ace", "a=b"}) EXPECT_EQ(property_set(bad, "1"), -1) << bad;
    for (const char* good : {"a", "ctl.start", "vendor.x_y-z@1:2", "A.B9"}) EXPECT_EQ(property_set(good, "1"), 0) << good;
    EXPECT_EQ(property_set("ro.zel.once", "first"), 0);
    EXPECT_EQ(property_set("ro.zel.once", "second"), -1);
    EXPECT_EQ(readProperty("ro.zel.once"), "first");
}
