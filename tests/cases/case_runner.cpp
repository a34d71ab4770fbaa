// Runs every case file as one test (see case_runner.h).
#include "case_runner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>
#include <sstream>

namespace cases {
namespace {

const std::string kMarker = "----";
// "# needs NAME NAME=value ...": the case runs only where these environment
// variables are set (to that value); ${NAME} stands for the value of a bare
// NAME in the calls and in the transcript.
const std::string kNeeds = "# needs ";

Table &table()
{
    static Table ops;
    return ops;
}

void replaceAll(std::string &s, const std::string &from, const std::string &to)
{
    for (size_t at = s.find(from); !from.empty() && at != std::string::npos;
         at = s.find(from, at + to.size())) {
        s.replace(at, from.size(), to);
    }
}

char unescape(const std::string &line, size_t &i)
{
    const char c = line[i++];
    static const std::string from = "nrt0\"\\", to = std::string("\n\r\t\0\"\\", 6);
    if (c == 'x') {
        i += 2;
        return static_cast<char>(std::stoi(line.substr(i - 2, 2), nullptr, 16));
    }
    return from.find(c) != std::string::npos ? to[from.find(c)] : c;
}

// Splits a call line into its words (see the header for the syntax).
std::vector<std::optional<std::string>> words(const std::string &line, const std::string &tmp)
{
    std::vector<std::optional<std::string>> out;
    size_t i = 0;
    while (i < line.size()) {
        if (line[i] == ' ') {
            ++i;
            continue;
        }
        std::string word, piece;
        while (i < line.size() && line[i] != ' ') {
            if (line[i] == '"') {
                piece.clear();
                for (++i; i < line.size() && line[i] != '"';) {
                    piece += line[i] == '\\' ? unescape(line, ++i) : line[i++];
                }
                ++i;
                word += piece;
            } else if (line[i] == '*' && !piece.empty()) {
                size_t end = 0;
                const int times = std::stoi(line.substr(i + 1), &end);
                for (int k = 1; k < times; ++k) {
                    word += piece;
                }
                i += 1 + end;
            } else {
                word += line[i++];
            }
        }
        replaceAll(word, "$T", tmp);
        replaceAll(word, "$D", DVR_TEST_DATA_DIR);
        out.push_back(word == "NULL" ? std::nullopt : std::optional(word));
    }
    return out;
}

std::string named(const std::string &log, const Args &args)
{
    std::string out;
    size_t done = 0;
    for (size_t at = log.find("0x"); at != std::string::npos; at = log.find("0x", done)) {
        const size_t end = log.find_first_not_of("0123456789abcdef", at + 2);
        const std::string hex = log.substr(at, end - at);
        const auto name = args.aliases.find(
            reinterpret_cast<const void *>(std::strtoull(hex.c_str(), nullptr, 16)));
        out += log.substr(done, at - done) + (name != args.aliases.end() ? name->second : hex);
        done = at + hex.size();
    }
    return out + log.substr(done);
}

// Bytes from 0x7F up as \xNN, so that the case files stay text.
std::string printable(const std::string &text)
{
    std::string out;
    for (const char c : text) {
        char hex[5];
        snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(c));
        out += static_cast<unsigned char>(c) >= 0x7F ? std::string(hex) : std::string(1, c);
    }
    return out;
}

// Runs fn with the descriptor limit at the lowest free descriptor, so that
// every open, socket or pipe fails with EMFILE.
template <typename Fn> std::string withoutFreeDescriptors(Fn &&fn)
{
    rlimit saved{};
    getrlimit(RLIMIT_NOFILE, &saved);
    const int lowest = dup(0);
    close(lowest);
    rlimit none = saved;
    none.rlim_cur = static_cast<rlim_t>(lowest);
    setrlimit(RLIMIT_NOFILE, &none);
    std::string result = fn();
    setrlimit(RLIMIT_NOFILE, &saved);
    return result;
}

std::string transcript(const std::vector<std::string> &calls)
{
    fake::TempDir tmp;
    std::string out;
    for (const std::string &line : calls) {
        Args args;
        args.v = words(line, tmp.path());
        args.tmp = &tmp;
        // "nofds op ...": the op runs with no descriptor left to open.
        const bool noFds = args.str(0) == "nofds";
        args.v.erase(args.v.begin(), args.v.begin() + (noFds ? 1 : 0));
        const std::string name = args.str(0);
        args.v.erase(args.v.begin());
        const auto op = table().find(name);
        std::string result = "unknown operation";
        std::string log;
        if (op != table().end()) {
            fake::StdoutCapture capture;
            result =
                noFds ? withoutFreeDescriptors([&] { return op->second(args); }) : op->second(args);
            log = named(fake::withoutLineNumbers(capture.text()), args);
        }
        for (const auto &[from, to] : args.subs) {
            replaceAll(log, from, to);
            replaceAll(result, from, to);
        }
        log = printable(log);
        result = printable(result);
        out += "> " + line + "\n" + (result.empty() ? "" : result + "\n");
        for (size_t at = 0; at < log.size();) {
            const size_t end = std::min(log.find('\n', at), log.size());
            out += "| " + log.substr(at, end - at) + (end == log.size() ? " [no newline]\n" : "\n");
            at = end + 1;
        }
        replaceAll(out, tmp.path(), "$T");
    }
    replaceAll(out, DVR_TEST_DATA_DIR, "$D");
    return out;
}

class CaseTest : public testing::Test {
public:
    explicit CaseTest(std::filesystem::path file) : file_(std::move(file)) {}
    void TestBody() override
    {
        std::ifstream in(file_);
        std::vector<std::string> head, calls;
        std::string line, expected;
        bool below = false;
        std::vector<std::pair<std::string, std::string>> env;
        while (std::getline(in, line)) {
            if (below) {
                expected += line + "\n";
                continue;
            }
            below = line == kMarker;
            head.push_back(line);
            if (line.starts_with(kNeeds)) {
                std::istringstream names(line.substr(kNeeds.size()));
                for (std::string name; names >> name;) {
                    const size_t is = name.find('=');
                    const char *value = getenv(name.substr(0, is).c_str());
                    if (value == nullptr ||
                        (is != std::string::npos && name.substr(is + 1) != value)) {
                        GTEST_SKIP() << "runs where " << name;
                    }
                    if (is == std::string::npos) {
                        env.emplace_back("${" + name + "}", value);
                    }
                }
            }
            if (!below && !line.empty() && line[0] != '#') {
                calls.push_back(line);
            }
        }
        // Longer values first, so that no value is taken for part of another.
        std::sort(env.begin(), env.end(),
                  [](const auto &x, const auto &y) { return x.second.size() > y.second.size(); });
        for (auto &call : calls) {
            for (const auto &[name, value] : env) {
                replaceAll(call, name, value);
            }
        }
        std::string got = transcript(calls);
        for (const auto &[name, value] : env) {
            replaceAll(got, value, name);
        }
        if (getenv("DVR_CASES_UPDATE") != nullptr) {
            std::ofstream outFile(file_);
            for (const std::string &h : head) {
                outFile << h << "\n";
            }
            outFile << (below ? "" : kMarker + "\n") << got;
            return;
        }
        EXPECT_EQ(got, expected) << file_.string();
    }

private:
    std::filesystem::path file_;
};

// One test per case file, named by its area and file.
const bool registered = [] {
    std::vector<std::filesystem::path> files;
    for (const auto &e : std::filesystem::recursive_directory_iterator(DVR_CASES_DIR)) {
        if (e.path().extension() == ".case") {
            files.push_back(e.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (const auto &file : files) {
        const std::string suite = "Cases_" + file.parent_path().filename().string();
        testing::RegisterTest(suite.c_str(), file.stem().c_str(), nullptr, nullptr,
                              file.string().c_str(), 1,
                              [file]() -> testing::Test * { return new CaseTest(file); });
    }
    return true;
}();

} // namespace

Register::Register(Table ops)
{
    table().merge(ops);
    for (const auto &[name, op] : ops) { // left over: the name was taken
        fprintf(stderr, "case operation %s defined twice\n", name.c_str());
        abort();
    }
}

Op step(std::function<void(Args &)> fn)
{
    return [fn = std::move(fn)](Args &a) {
        fn(a);
        return std::string();
    };
}

std::string q(const std::string &bytes)
{
    std::string out = "\"";
    for (const char c : bytes) {
        const auto u = static_cast<unsigned char>(c);
        static const std::string from = std::string("\n\r\t\"\\", 5), to = "nrt\"\\";
        if (from.find(c) != std::string::npos) {
            out += std::string("\\") + to[from.find(c)];
        } else if (u < 0x20 || u >= 0x7f) {
            char hex[5];
            snprintf(hex, sizeof hex, "\\x%02X", u);
            out += hex;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string q(const char *text)
{
    return text == nullptr ? "NULL" : q(std::string(text));
}

std::string join(const std::vector<std::string> &words)
{
    std::string out;
    for (const std::string &w : words) {
        out += (out.empty() ? "" : " ") + w;
    }
    return out;
}

std::string hex(const std::vector<uint8_t> &bytes)
{
    std::string out;
    for (const uint8_t byte : bytes) {
        char text[4];
        snprintf(text, sizeof text, "%02X ", byte);
        out += text;
    }
    return out;
}

std::string rc(long long value)
{
    return std::to_string(value);
}

std::string nums(std::initializer_list<long long> values)
{
    std::vector<std::string> words;
    for (const long long v : values) {
        words.push_back(std::to_string(v));
    }
    return join(words);
}

} // namespace cases
