// Editing and searching text files by key, on real files, with the temporary
// file in a redirected /var.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>

#include "COMMON.h"
#include "test_support.h"

namespace {

struct EditCase {
    const char *name;
    std::optional<std::string> before; // none: the file doesn't exist
    std::vector<COM_ITEM> items;
    int result;
    std::string after, matched; // matched: '1' for each item whose keyLen is 0 after the call
    COM_ITEM_LIST flags = {};   // findOnly, anywhere, appendMissing
};

using Outcome = std::pair<int, std::string>;
constexpr COM_ITEM_LIST kAppend = {0, 0, 0, 1, nullptr}, kAnywhere = {0, 0, 1, 0, nullptr},
                        kFindOnly = {0, 1, 0, 0, nullptr};

class ItemFile : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(var);
        fake::redirect("/var", var);
    }
    // The call's result and what it logged; no temporary file may stay.
    Outcome replace(const std::string &path, std::vector<COM_ITEM> &items, COM_ITEM_LIST list = {})
    {
        list.count = static_cast<int>(items.size());
        list.items = items.data();
        Outcome o{};
        o.second = fake::withoutLineNumbers(
            fake::captureStdout([&] { o.first = COM_ReplaceItemsInFile(path.c_str(), &list); }));
        EXPECT_TRUE(std::filesystem::is_empty(var));
        return o;
    }
    fake::TempDir dir;
    const std::string var = dir.file("var");
};

class ItemEdits : public ItemFile, public testing::WithParamInterface<EditCase> {};

TEST_P(ItemEdits, RewritesTheSameFile)
{
    const EditCase &c = GetParam();
    const std::string path = c.before ? dir.write("conf", *c.before) : dir.file("conf");
    struct stat old {
    }, now{};
    stat(path.c_str(), &old);
    auto items = c.items;
    EXPECT_EQ(replace(path, items, c.flags), (Outcome{c.result, ""}));
    EXPECT_EQ(fake::readFile(path), c.after);
    ASSERT_EQ(stat(path.c_str(), &now), 0);
    EXPECT_TRUE(!c.before || now.st_ino == old.st_ino) << "the file was replaced, not rewritten";
    std::string matched;
    for (const COM_ITEM &item : items) {
        matched += item.keyLen == 0 ? '1' : '0';
    }
    EXPECT_EQ(matched, c.matched);
}

const std::string kLong(260, 'x'); // read as 255 characters, then the rest

INSTANTIATE_TEST_SUITE_P(
    Cases, ItemEdits,
    testing::Values(
        EditCase{"ShorterLineShrinksTheFile",
                 "a=1\nname=a long value\nc=3\n",
                 {{5, "NAME=", "name=x"}},
                 1,
                 "a=1\nname=x\nc=3\n",
                 "1"},
        EditCase{
            "EmptyValueRemovesTheFirstMatchOnly", "x=1\nx=2\n", {{2, "x=", ""}}, 1, "x=2\n", "1"},
        EditCase{"MissingFileGetsTheAppendedValues",
                 std::nullopt,
                 {{2, "a=", "a=1"}, {2, "b=", ""}, {2, "c=", "c=3"}},
                 2,
                 "a=1\nc=3\n",
                 "000",
                 kAppend},
        EditCase{"NoMatchLeavesTheBytes", "k v\r\nlast", {{1, "z", "z=1"}}, 0, "k v\r\nlast", "0"},
        EditCase{"LastLineWithoutFeedStays", "a=1\nb=2", {{2, "a=", "a=9"}}, 1, "a=9\nb=2", "1"},
        EditCase{"ReplacedLastLineGetsAFeed", "a=1\nb=2", {{2, "b=", "b=3"}}, 1, "a=1\nb=3\n", "1"},
        EditCase{"AppendedAfterLastLineWithoutFeed",
                 "a=1",
                 {{2, "c=", "c=3"}},
                 1,
                 "a=1\nc=3\n",
                 "0",
                 kAppend},
        EditCase{"FindOnlyAnywhereAppendsNothing",
                 "nodev\tsysfs\n\text4\nnodev\tproc\n",
                 {{5, "\tproc", "x"}, {4, "\tnfs", "y"}},
                 1,
                 "nodev\tsysfs\n\text4\nnodev\tproc\n",
                 "10",
                 {0, 1, 1, 1, nullptr}},
        EditCase{
            "FindOnlyCreatesAMissingFile", std::nullopt, {{1, "a", "a"}}, 0, "", "0", kFindOnly},
        EditCase{"AnywhereInTheSecondPiece",
                 kLong + "needle\n",
                 {{6, "needle", "new"}},
                 1,
                 std::string(255, 'x') + "new\n",
                 "1",
                 kAnywhere},
        EditCase{"StartOfTheSecondPiece",
                 kLong + "needle\n",
                 {{11, "xxxxxneedle", "new"}},
                 1,
                 std::string(255, 'x') + "new\n",
                 "1"},
        EditCase{"KeyAcrossPiecesIsNotSeen",
                 std::string(250, 'x') + "needle\n",
                 {{6, "needle", "new"}},
                 0,
                 std::string(250, 'x') + "needle\n",
                 "0",
                 kAnywhere},
        EditCase{"NoItemsCopiesTheFile", "a\nb", {}, 0, "a\nb", ""},
        EditCase{"SameKeyTakesTheNextMatch",
                 "p=1\np=2\np=3\n",
                 {{2, "p=", "p=A"}, {2, "p=", "p=B"}},
                 2,
                 "p=A\np=B\np=3\n",
                 "11"},
        EditCase{
            "PrefixKeyTakesLongerKeys", "ab=1\na=2\n", {{1, "a", "a=9"}}, 1, "a=9\na=2\n", "1"},
        EditCase{"KeyLenCountsAndZeroOrLessTakesNoPart",
                 "abc=1\nq=2\n",
                 {{1, "aXX", "a"}, {0, "q", "q=3"}, {-1, "q", "q=4"}},
                 1,
                 "a\nq=2\n",
                 "110",
                 kAppend},
        EditCase{"ZeroBytesAreKept",
                 std::string("a\0b\nc=1\n", 8),
                 {{2, "c=", "c=2"}},
                 1,
                 std::string("a\0b\nc=2\n", 8),
                 "1"}),
    [](const testing::TestParamInfo<EditCase> &info) { return std::string(info.param.name); });

TEST_F(ItemFile, FailuresLeaveTheTargetAndNoTemporaryFile)
{
    const std::string path = dir.write("conf", "a=1\n");
    std::vector<COM_ITEM> items = {{2, "a=", "a=2"}};
    EXPECT_EQ(replace(dir.path(), items),
              (Outcome{-1, "item_replace.cpp,N:COM_ReplaceItemsInFile(): fopen(" + dir.path() +
                               ") failed : Is a directory\n"}));
    EXPECT_EQ(replace(dir.file("no/such/conf"), items),
              (Outcome{-1, ""})); // can't be created: no report
    fake::redirect("/var", dir.file("gone"));
    EXPECT_EQ(replace(path, items),
              (Outcome{-1, "item_replace.cpp,N:COM_ReplaceItemsInFile(): mkstemp() failed : No "
                           "such file or directory\n"}));
    EXPECT_EQ(fake::readFile(path), "a=1\n");
    EXPECT_EQ(items[0].keyLen, 2);
}

// A temporary file that can't take a line (here: past the file size limit)
// stops the edit before the target is touched.
TEST_F(ItemFile, FailedTemporaryWriteLeavesTheTarget)
{
    std::string text;
    for (int i = 0; i < 40; ++i) {
        text += std::string(98, static_cast<char>('A' + i % 26)) + "=\n"; // 100 bytes a line
    }
    const std::string path = dir.write("big", text);
    std::vector<COM_ITEM> items = {{1, "A", "a=0"}, {3, "zzz", "z=1"}};
    struct rlimit old {};
    getrlimit(RLIMIT_FSIZE, &old);
    const struct rlimit small = {2048, old.rlim_max};
    void (*oldHandler)(int) = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const Outcome got = replace(path, items, kAppend);
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, oldHandler);
    // 4 + 20 * 100 bytes fit; the next line doesn't.
    EXPECT_EQ(
        got,
        (Outcome{-1,
                 "item_replace.cpp,N:COM_ReplaceItemsInFile(): fprintf() fail : File too large : " +
                     text.substr(2100, 100)}));
    EXPECT_EQ(fake::readFile(path), text);
    EXPECT_EQ(items[0].keyLen, 0); // matched before the failure
    EXPECT_EQ(items[1].keyLen, 3);
}

} // namespace
