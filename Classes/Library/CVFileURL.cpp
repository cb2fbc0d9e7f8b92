#include "Library/CVFileURL.h"

#include <QByteArray>

#include <string>

namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i];
        if (x >= 'A' && x <= 'Z')
            x = char(x - 'A' + 'a');
        if (x != b[i])
            return false;
    }
    return true;
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool isValidUtf8(std::string_view s)
{
    std::size_t i = 0;
    while (i < s.size()) {
        const auto c = static_cast<unsigned char>(s[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        int extra;
        char32_t cp;
        if ((c & 0xE0) == 0xC0) {
            extra = 1;
            cp = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            cp = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            cp = c & 0x07;
        } else {
            return false;
        }
        if (i + std::size_t(extra) >= s.size())
            return false;
        for (int k = 1; k <= extra; ++k) {
            const auto cc = static_cast<unsigned char>(s[i + std::size_t(k)]);
            if ((cc & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (cc & 0x3F);
        }
        if ((extra == 1 && cp < 0x80) || (extra == 2 && cp < 0x800) || (extra == 3 && cp < 0x10000) || cp > 0x10FFFF
            || (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        i += std::size_t(extra) + 1;
    }
    return true;
}

} // namespace

std::optional<QString> CVFileURL::pathFromFileURL(std::string_view url)
{
    if (url.size() < 5 || !equalsIgnoringCase(url.substr(0, 5), "file:"))
        return std::nullopt;
    std::string_view rest = url.substr(5);
    if (rest.size() >= 2 && rest[0] == '/' && rest[1] == '/') {
        rest.remove_prefix(2);
        const std::size_t slash = rest.find('/');
        const std::string_view host = rest.substr(0, slash);
        if (!host.empty() && !equalsIgnoringCase(host, "localhost"))
            return std::nullopt;
        if (slash == std::string_view::npos)
            return std::nullopt;
        rest.remove_prefix(slash);
    }
    // The path ends where a query or a fragment begins.
    const std::size_t end = rest.find_first_of("?#");
    if (end != std::string_view::npos)
        rest = rest.substr(0, end);
    if (rest.empty() || rest[0] != '/')
        return std::nullopt;

    std::string decoded;
    std::string_view path = rest;
    if (rest.find('%') != std::string_view::npos) {
        decoded.resize(rest.size());
        char *out = decoded.data();
        for (std::size_t i = 0; i < rest.size(); ++i) {
            int hi, lo;
            if (rest[i] == '%' && i + 2 < rest.size() && (hi = hexValue(rest[i + 1])) >= 0
                && (lo = hexValue(rest[i + 2])) >= 0) {
                *out++ = char(hi * 16 + lo);
                i += 2;
            } else {
                // A stray "%" stays itself, as a tolerant URL parser reads it.
                *out++ = rest[i];
            }
        }
        decoded.resize(std::size_t(out - decoded.data()));
        path = decoded;
    }
    if (path.find('\0') != std::string_view::npos || !isValidUtf8(path))
        return std::nullopt;
    if (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return QString::fromUtf8(path.data(), qsizetype(path.size()));
}

QByteArray CVFileURL::fileURLFromPath(const QString &path)
{
    return QByteArrayLiteral("file://localhost") + path.toUtf8().toPercentEncoding("/");
}
