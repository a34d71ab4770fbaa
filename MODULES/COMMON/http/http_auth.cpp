// The text that closes a request header: Basic or Digest authorization, or
// the blank line. The Digest form is the one this system's peers know:
// "algorithms", quoted nc and qop, a fixed cnonce and an nc that never counts.
#include "http_private.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "com_log.h"

static_assert(sizeof(COM_HTTP_AUTH) == 528, "the record is shared by size; chars only after type");
static_assert(offsetof(COM_HTTP_AUTH, username) == 4 && offsetof(COM_HTTP_AUTH, realm) == 64 &&
                  offsetof(COM_HTTP_AUTH, qop) == 144 && offsetof(COM_HTTP_AUTH, nonce) == 160 &&
                  offsetof(COM_HTTP_AUTH, opaque) == 240 && offsetof(COM_HTTP_AUTH, nc) == 320 &&
                  offsetof(COM_HTTP_AUTH, ha1) == 336 && offsetof(COM_HTTP_AUTH, response) == 480,
              "same offsets on the board and the host");

namespace {
constexpr int kUriLimit = 255;
constexpr int kUserPassLimit = 79;
// Room for the longest hash text the record's fields and the uri can make.
constexpr int kHashTextSize = 512;
constexpr const char *kCnonceSeed = "QUILT";
constexpr const char *kFirstNc = "00000001";
constexpr const char *kBlankLine = "\r\n";

// A member of the record as text, never read past its width even when the
// caller left it unterminated.
template <size_t N> std::string_view field(const char (&member)[N])
{
    return {member, strnlen(member, N)};
}
#define FIELD(m) static_cast<int>(field(m).size()), field(m).data()

// The MD5 text of a formatted text into a digest member (terminated: each
// member is wider than the 32 digits).
template <size_t N> void md5Of(char (&member)[N], const char *fmt, ...) COM_PRINTF_LIKE(2, 3);
template <size_t N> void md5Of(char (&member)[N], const char *fmt, ...)
{
    static_assert(N > COM_MD5_TEXT_SIZE);
    char text[kHashTextSize];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    COM_MakeStrMD5(member, text);
    member[COM_MD5_TEXT_SIZE] = '\0';
}

// out becomes the formatted line, or the blank line alone when the line
// doesn't fit: a cut header would never end.
void setLine(char *out, const char *fmt, ...) COM_PRINTF_LIKE(2, 3);
void setLine(char *out, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const int n = vsnprintf(out, http::kAuthTextSize, fmt, args);
    va_end(args);
    if (n < 0 || n >= http::kAuthTextSize) {
        COM_LOG("COM_MakeHttpAuthHeader", "buffer overflow : (len, limit) = (%d, %d)\n", n + 1,
                http::kAuthTextSize);
        snprintf(out, http::kAuthTextSize, "%s", kBlankLine);
    }
}

void basic(const COM_HTTP_AUTH &auth, char *out)
{
    char userPass[kUserPassLimit + 1];
    snprintf(userPass, sizeof userPass, "%.*s:%.*s", FIELD(auth.username), FIELD(auth.password));
    char encoded[(sizeof userPass + 2) / 3 * 4 + 1];
    COM_EncodeBase64(encoded, userPass, static_cast<int32_t>(strlen(userPass)));
    setLine(out, "Authorization: Basic %s\r\n\r\n", encoded);
}

void digest(const char *method, const char *url, COM_HTTP_AUTH &auth, const char *uri, char *out)
{
    if (auth.nonce[0] == '\0') {
        COM_GetHttpDigestChallenge(url, &auth);
    }
    if (auth.nonce[0] == '\0') {
        snprintf(out, http::kAuthTextSize, "%s", kBlankLine);
        return;
    }
    md5Of(auth.ha1, "%.*s:%.*s:%.*s", FIELD(auth.username), FIELD(auth.realm),
          FIELD(auth.password));
    md5Of(auth.ha2, "%s:%s", method, uri);
    if (auth.qop[0] == '\0') {
        md5Of(auth.response, "%s:%.*s:%s", auth.ha1, FIELD(auth.nonce), auth.ha2);
        setLine(out,
                "Authorization: Digest username=\"%.*s\",realm=\"%.*s\",nonce=\"%.*s\","
                "uri=\"%s\",response=\"%s\"\r\n\r\n",
                FIELD(auth.username), FIELD(auth.realm), FIELD(auth.nonce), uri, auth.response);
        return;
    }
    md5Of(auth.cnonce, "%s", kCnonceSeed);
    if (const size_t comma = field(auth.qop).find(','); comma != std::string_view::npos) {
        auth.qop[comma] = '\0';
    }
    snprintf(auth.nc, sizeof auth.nc, "%s", kFirstNc);
    md5Of(auth.response, "%s:%.*s:%s:%s:%.*s:%s", auth.ha1, FIELD(auth.nonce), auth.nc, auth.cnonce,
          FIELD(auth.qop), auth.ha2);
    setLine(out,
            "Authorization: Digest username=\"%.*s\",realm=\"%.*s\",nonce=\"%.*s\",uri=\"%s\","
            "cnonce=\"%s\",nc=\"%s\",algorithms=\"MD5\",response=\"%s\",qop=\"%.*s\","
            "opaque=\"%.*s\"\r\n\r\n",
            FIELD(auth.username), FIELD(auth.realm), FIELD(auth.nonce), uri, auth.cnonce, auth.nc,
            auth.response, FIELD(auth.qop), FIELD(auth.opaque));
}
} // namespace

void COM_MakeHttpAuthHeader(const char *method, const char *url, COM_HTTP_AUTH *auth, char *out)
{
    if (out == nullptr) {
        return;
    }
    char uri[kUriLimit + 1];
    snprintf(uri, sizeof uri, "%s", http::pathOf(url));
    const int type = auth != nullptr ? auth->type : COM_HTTP_AUTH_NONE;
    if (type == COM_HTTP_AUTH_BASIC) {
        basic(*auth, out);
    } else if (type == COM_HTTP_AUTH_DIGEST && url != nullptr) {
        digest(method != nullptr ? method : "GET", url, *auth, uri, out);
    } else {
        snprintf(out, http::kAuthTextSize, "%s", kBlankLine);
    }
}

int COM_GetHttpDigestChallenge(const char *url, COM_HTTP_AUTH *auth)
{
    if (auth == nullptr) {
        return -1;
    }
    auth->type = COM_HTTP_AUTH_NONE;
    char *answer = nullptr;
    const int result =
        COM_SubGetPostHttpContent(url, &answer, auth, HTTP_CMD_GET, nullptr, 1, nullptr, 0);
    if (result > 0) {
        COM_ParseHttpDigestChallenge(answer, auth);
    }
    free(answer);
    auth->type = COM_HTTP_AUTH_DIGEST;
    return result;
}

int COM_ParseHttpDigestChallenge(const char *answer, COM_HTTP_AUTH *auth)
{
    const char *at = COM_StrCaseStr(answer, "WWW-Authenticate: Digest");
    if (at == nullptr || auth == nullptr) {
        return -1;
    }
    COM_GetStrInDoubleQuotes(at, "realm=", auth->realm, sizeof auth->realm);
    COM_GetStrInDoubleQuotes(at, "qop=", auth->qop, sizeof auth->qop);
    COM_GetStrInDoubleQuotes(at, "nonce=", auth->nonce, sizeof auth->nonce);
    COM_GetStrInDoubleQuotes(at, "opaque=", auth->opaque, sizeof auth->opaque);
    return 0;
}
