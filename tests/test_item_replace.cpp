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

struct Item {
    std::string key;
    std::string value;
    int keyLen = -1; // -1: the key's length
};

struct EditCase {
    const char *name;
    std::optional<std::string> before; // none: the file doesn't exist
    std::vector<Item> items;
    int result;
    std::string after;
    std::string matched; // '1' for each item whose keyLen came back 0
    bool findOnly = false, anywhere = false, appendMissing = false;
};

class ItemFile : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(dir.file("var"));
        fake::redirect("/var", dir.file("var"));
    }
    // The call, with what it logged; the temporary file must be gone after it.
    int replace(const std::string &path, std::vector<COM_ITEM> &items, COM_ITEM_LIST list = {})
    {
        list.count = static_cast<int>(items.size());
        list.items = items.data();
        int rc = 0;
        log = fake::withoutLineNumbers(fake::captureStdout([&] { rc = COM_ReplaceItemsInFile(path.c_str(), &list); }));
        EXPECT_TRUE(std::filesystem::is_empty(dir.file("var")));
        return rc;
    }
    static std::vector<COM_ITEM> make(const std::vector<Item> &from)
    {
        std::vector<COM_ITEM> items(from.size());
        for (size_t i = 0; i < from.size(); ++i) {
            items[i].keyLen = from[i].keyLen < 0 ? static_cast<int>(from[i].key.size()) : from[i].keyLen;
            from[i].key.copy(items[i].key, sizeof items[i].key - 1);
            from[i].value.copy(items[i].value, sizeof items[i].value - 1);
        }
        return items;
    }
    fake::TempDir dir;
    std::string log;
};

class ItemEdits : public ItemFile, public testing::WithParamInterface<EditCase> {};

TEST_P(ItemEdits, RewritesTheSameFile)
{
    const EditCase &c = GetParam();
    const std::string path = c.before ? dir.write("conf", *c.before) : dir.file("conf");
    struct stat old {};
    stat(path.c_str(), &old);
    auto items = make(c.items);
    EXPECT_EQ(replace(path, items, {0, c.findOnly, c.anywhere, c.appendMissing, nullptr}), c.result);
    EXPECT_EQ(fake::readFile(path), c.after);
    struct stat now {};
    ASSERT_EQ(stat(path.c_str(), &now), 0);
    EXPECT_TRUE(!c.before || now.st_ino == old.st_ino) << "the file was replaced, not rewritten";
    std::string matched;
    for (const COM_ITEM &item : items) {
        matched += item.keyLen == 0 ? '1' : '0';
    }
    EXPECT_EQ(matched, c.matched);
    EXPECT_EQ(log, "");
}

const std::string kLong(260, 'x'); // read as 255 characters, then the rest

INSTANTIATE_TEST_SUITE_P(
    Cases, ItemEdits,
    testing::Values(
        EditCase{"ShorterLineShrinksTheFile", "a=1\nname=a long value\nc=3\n", {{"NAME=", "name=x"}}, 1, "a=1\nname=x\nc=3\n", "1"},
        EditCase{"EmptyValueRemovesTheFirstMatchOnly", "x=1\nx=2\n", {{"x=", ""}}, 1, "x=2\n", "1"},
        EditCase{"MissingFileGetsTheAppendedValues", std::nullopt, {{"a=", "a=1"}, {"b=", ""}, {"c=", "c=3"}}, 2, "a=1\nc=3\n", "000", false, false, true},
        EditCase{"NoMatchLeavesTheBytes", "k v\r\nlast", {{"z", "z=1"}}, 0, "k v\r\nlast", "0"},
        EditCase{"LastLineWithoutFeedStays", "a=1\nb=2", {{"a=", "a=9"}}, 1, "a=9\nb=2", "1"},
        EditCase{"ReplacedLastLineGetsAFeed", "a=1\nb=2", {{"b=", "b=3"}}, 1, "a=1\nb=3\n", "1"},
        EditCase{"AppendedAfterLastLineWithoutFeed", "a=1", {{"c=", "c=3"}}, 1, "a=1\nc=3\n", "0", false, false, true},
        EditCase{"FindOnlyAnywhere", "nodev\tsysfs\n\text4\nnodev\tproc\n", {{"\tproc", "x"}, {"\tnfs", "y"}}, 1,
                 "nodev\tsysfs\n\text4\nnodev\tproc\n", "10", true, true, true},
        EditCase{"FindOnlyCreatesAMissingFile", std::nullopt, {{"a", "a"}}, 0, "", "0", true},
        EditCase{"AnywhereInTheSecondPiece", kLong + "needle\n", {{"needle", "new"}}, 1, std::string(255, 'x') + "new\n", "1", false, true},
        EditCase{"StartOfTheSecondPiece", kLong + "needle\n", {{"xxxxxneedle", "new"}}, 1, std::string(255, 'x') + "new\n", "1"},
        EditCase{"KeyAcrossPiecesIsNotSeen", std::string(250, 'x') + "needle\n", {{"needle", "new"}}, 0, std::string(250, 'x') + "needle\n", "0", false, true},
        EditCase{"NoItemsCopiesTheFile", "a\nb", {}, 0, "a\nb", ""},
        EditCase{"SameKeyTakesTheNextMatch", "p=1\np=2\np=3\n", {{"p=", "p=A"}, {"p=", "p=B"}}, 2, "p=A\np=B\np=3\n", "11"},
        EditCase{"PrefixKeyTakesLongerKeys", "ab=1\na=2\n", {{"a", "a=9"}}, 1, "a=9\na=2\n", "1"},
        EditCase{"KeyLenCountsAndZeroTakesNoPart", "abc=1\nq=2\n", {{"aXX", "a", 1}, {"q", "q=3", 0}}, 1, "a\nq=2\n", "11"},
        EditCase{"ZeroBytesAreKept", std::string("a\0b\nc=1\n", 8), {{"c=", "c=2"}}, 1, std::string("a\0b\nc=2\n", 8), "1"}),
    [](const testing::TestParamInfo<EditCase> &info) { return std::string(info.param.name); });

TEST_F(ItemFile, FailuresLeaveTheTargetAndNoTemporaryFile)
{
    const std::string path = dir.write("conf", "a=1\n");
    auto items = make({{"a=", "a=2"}});
    EXPECT_EQ(replace(dir.path(), items), -1);
    EXPECT_EQ(log, "item_replace.cpp,N:COM_ReplaceItemsInFile(): fopen(" + dir.path() + ") failed : Is a directory\n");
    EXPECT_EQ(replace(dir.file("no/such/conf"), items), -1); // can't be created: no report
    EXPECT_EQ(log, "");

    fake::redirect("/var", dir.file("gone"));
    EXPECT_EQ(replace(path, items), -1);
    EXPECT_EQ(log, "item_replace.cpp,N:COM_ReplaceItemsInFile(): mkstemp() failed : No such file or directory\n");
    EXPECT_EQ(fake::readFile(path), "a=1\n");
    EXPECT_EQ(items[0].keyLen, 2);
}

// A temporary file that can't take a line (here: past the file size limit)
// stops the edit before the target is touched.
TEST_F(ItemFile, FailedTemporaryWriteLeavesTheTarget)
{
    std::string text;
    for (int i = 0; i < 40; ++i) {
        text += std::string(97, static_cast<char>('A' + i % 26)) + std::to_string(i % 10) + "=\n";
    }
    const std::string path = dir.write("big", text);
    auto items = make({{"A", "a=0"}, {std::string(97, 'E') + "0=", "e=30"}});
    struct rlimit old {};
    getrlimit(RLIMIT_FSIZE, &old);
    const struct rlimit small = {2048, old.rlim_max};
    void (*oldHandler)(int) = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const int rc = replace(path, items, {0, 0, 0, 1, nullptr});
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(log, "item_replace.cpp,N:COM_ReplaceItemsInFile(): fprintf() fail : File too large : " +
                       text.substr(21 * 100, 100));
    EXPECT_EQ(fake::readFile(path), text);
    EXPECT_EQ(items[0].keyLen, 0); // matched before the failure
    EXPECT_EQ(items[1].keyLen, 99);
}

} // namespace
