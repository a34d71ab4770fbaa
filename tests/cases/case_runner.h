// Case files: tests/cases/<area>/<name>.case. Above the line "----" the calls,
// one a line ("op arg arg ..."); below it the transcript they must give: each
// call echoed after "> ", its result, and its log lines after "| " (line
// numbers as N). DVR_CASES_UPDATE=1 rewrites the part below the line.
//
// An argument is a bare word or "quoted text" with C escapes, pieces glued
// together; "x"*40 repeats the piece before it, NULL is a null pointer, $T is
// the case's temporary directory and $D the test data folder. A line
// "# needs NAME ..." skips the case unless those environment variables are
// set; ${NAME} then stands for the value in the calls and the transcript.
#ifndef DVR_CASE_RUNNER_H
#define DVR_CASE_RUNNER_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <cstdint>
#include <vector>

#include "test_support.h"

namespace cases {

struct Args {
    std::vector<std::optional<std::string>> v;
    const fake::TempDir *tmp = nullptr;
    // Addresses the log prints, shown by these names ("(nil)" stays).
    std::map<const void *, std::string> aliases;

    void alias(const void *at, const std::string &name) { aliases[at] = name; }
    // Texts that vary from run to run, replaced in the log and the result.
    std::vector<std::pair<std::string, std::string>> subs;
    void sub(const std::string &from, const std::string &to) { subs.emplace_back(from, to); }

    const char *s(size_t i) const { return i < v.size() && v[i] ? v[i]->c_str() : nullptr; }
    std::string str(size_t i) const { return i < v.size() && v[i] ? *v[i] : ""; }
    long n(size_t i) const { return strtol(s(i) != nullptr ? s(i) : "0", nullptr, 0); }
    size_t size() const { return v.size(); }
};

// An operation returns its result as text; the runner records its log.
using Op = std::function<std::string(Args &)>;
using Table = std::map<std::string, Op>;
// An operation that gives no result.
Op step(std::function<void(Args &)> fn);

// Adds the operations of one area; used from a static initialiser.
struct Register {
    explicit Register(Table ops);
};

// Text as the transcript shows it: quoted, with C escapes; "NULL" for null.
std::string q(const char *text);
std::string q(const std::string &bytes);
// Bytes in hex, each followed by a blank.
std::string hex(const std::vector<uint8_t> &bytes);
// A number as the transcript shows it.
std::string rc(long long value);
// Numbers joined by spaces.
std::string nums(std::initializer_list<long long> values);
// Words joined by spaces.
std::string join(const std::vector<std::string> &words);

} // namespace cases

#endif
