#include "test_support.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fake {

std::string withoutLineNumbers(const std::string &log)
{
    std::string out;
    size_t pos = 0;
    while (pos < log.size()) {
        size_t end = log.find('\n', pos);
        end = end == std::string::npos ? log.size() : end + 1;
        std::string line = log.substr(pos, end - pos);
        size_t i = 0;
        while (i < line.size() &&
               (isalnum(static_cast<unsigned char>(line[i])) || line[i] == '_' || line[i] == '.')) {
            ++i;
        }
        size_t digits = i + 1;
        while (i > 0 && digits < line.size() && line[i] == ',' &&
               isdigit(static_cast<unsigned char>(line[digits]))) {
            ++digits;
        }
        if (i > 0 && digits > i + 1 && digits < line.size() && line[digits] == ':') {
            line.replace(i + 1, digits - i - 1, "N");
        }
        out += line;
        pos = end;
    }
    return out;
}

TempDir::TempDir()
{
    char name[] = "/tmp/dvr-test-XXXXXX";
    const char *made = mkdtemp(name);
    path_ = made != nullptr ? made : "";
}

TempDir::~TempDir()
{
    std::error_code ec;
    if (!path_.empty()) {
        // Read-only directories a test made are opened up so they can go.
        for (auto &e : std::filesystem::recursive_directory_iterator(path_, ec)) {
            if (e.is_directory(ec) && !e.is_symlink(ec)) {
                std::filesystem::permissions(e.path(), std::filesystem::perms::owner_all,
                                             std::filesystem::perm_options::add, ec);
            }
        }
        std::filesystem::remove_all(path_, ec);
    }
}

std::string TempDir::write(const std::string &name, const std::string &content) const
{
    const std::string full = file(name);
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(full).parent_path(), ec);
    std::ofstream(full, std::ios::binary) << content;
    return full;
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

} // namespace fake
