// MD5 and SHA-1 digests of files, and the check of a file against a side
// file in the text form that md5sum writes ("digest  name").
#include "com_log.h"
#include "fd_io.h"
#include "digest_context.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace {
// Files are fed to the digest in reads of this size.
constexpr size_t kFileBlockSize = 256;
// The side file is read as a one-line file: in effect its first line counts.
constexpr size_t kSideContentSize = 256;
// The whole side file name, and the recorded digest and base name it holds.
constexpr size_t kSidePathSize = 256;
constexpr size_t kSideFieldSize = 128;
constexpr const char *kDefaultSuffix = ".md5";
constexpr const char *kSideDelimiters = "\r\n\t ";

// Feeds the file to the digest until a read gives less than 1 byte (a read
// error ends it early) and stores the digest. False, reported in func's name,
// if the file can't be opened.
template <typename Context>
bool digestFile(const char *func, const char *path, Context &ctx, uint8_t *digest)
{
    if (path == nullptr || digest == nullptr) {
        return false;
    }
    const fdio::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) {
        COM_LOG_FAILED_CALL(func, "open(%s) fail : %s\n", path);
        return false;
    }
    uint8_t block[kFileBlockSize];
    ssize_t got;
    while ((got = read(fd.get(), block, sizeof block)) > 0) {
        ctx.update(block, static_cast<size_t>(got));
    }
    ctx.final(digest);
    return true;
}

std::string_view baseName(std::string_view path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// Copies text into a field of kSideFieldSize bytes, cut to fit.
void setField(char (&field)[kSideFieldSize], std::string_view text)
{
    snprintf(field, sizeof field, "%.*s", static_cast<int>(text.size()), text.data());
}
} // namespace

void COM_MakeFileMD5(char *out, const char *path)
{
    dvr::Md5Context ctx = dvr::md5Start();
    uint8_t digest[dvr::kMd5Size];
    if (out != nullptr && digestFile(__func__, path, ctx, digest)) {
        dvr::hexText(out, digest, sizeof digest);
    }
}

void COM_MakeFileSHA1(uint8_t *out, const char *path)
{
    dvr::Sha1Context ctx = dvr::sha1Start();
    if (digestFile(__func__, path, ctx, out)) {
        char text[2 * dvr::kSha1Size + 1] = "";
        dvr::hexText(text, out, dvr::kSha1Size);
        COM_LOG(nullptr, "Digest = [%s]\n", text);
    }
}

int COM_CheckFileMD5(const char *path, const char *suffix)
{
    if (path == nullptr) {
        return -1;
    }
    char sidePath[kSidePathSize];
    snprintf(sidePath, sizeof sidePath, "%s%s", path, suffix != nullptr ? suffix : kDefaultSuffix);
    char content[kSideContentSize] = "";
    if (COM_GetFileContent(sidePath, content, sizeof content) != 0) {
        COM_LOG(nullptr, "Can't read md5 in [%s]\n", sidePath);
        return -1;
    }

    // The token before the first one that names the file, whatever its
    // directory, is the recorded digest.
    char wanted[kSideFieldSize];
    setField(wanted, baseName(path));
    char recorded[kSideFieldSize] = "";
    bool named = false;
    const char *previous = "";
    char *save = nullptr;
    for (char *tok = strtok_r(content, kSideDelimiters, &save); tok != nullptr;
         tok = strtok_r(nullptr, kSideDelimiters, &save)) {
        char name[kSideFieldSize];
        setField(name, baseName(tok));
        if (strcmp(name, wanted) == 0) {
            setField(recorded, previous);
            named = true;
            break;
        }
        previous = tok;
    }
    if (!named) {
        return -1;
    }

    char computed[COM_MD5_TEXT_SIZE + 1] = "";
    COM_MakeFileMD5(computed, path);
    if (strcmp(computed, recorded) == 0) {
        COM_LOG(nullptr, "md5sum(%s) passed\n", path);
        return 0;
    }
    printf("%s(%s) failed\n  => [%s] vs [%s]\n", "COM_CheckFileMD5", path, computed, recorded);
    return -1;
}
