#include "Library/CVFileURL.h"

#include <QByteArray>
#include <QStringDecoder>

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
    if (rest.empty() || rest[0] != '/')
        return std::nullopt;

    // One pass: decode escapes, stop at a query or fragment, note NULs and non-ASCII bytes.
    // Every location of the library comes through here.
    char stack[512];
    std::string heap;
    char *out = stack;
    if (rest.size() > sizeof stack) {
        heap.resize(rest.size());
        out = heap.data();
    }
    const char *const begin = out;
    unsigned char high = 0;
    bool invalid = false;
    for (std::size_t i = 0; i < rest.size(); ++i) {
        char c = rest[i];
        if (c == '?' || c == '#')
            break;
        int hi, lo;
        // A stray "%" stays itself, as a tolerant URL parser reads it.
        if (c == '%' && i + 2 < rest.size() && (hi = hexValue(rest[i + 1])) >= 0 && (lo = hexValue(rest[i + 2])) >= 0) {
            c = char(hi * 16 + lo);
            i += 2;
            // An escaped "/" would join two names into a path of another file.
            invalid |= c == '/';
        }
        high |= static_cast<unsigned char>(c);
        invalid |= c == '\0';
        *out++ = c;
    }
    std::size_t length = std::size_t(out - begin);
    if (invalid)
        return std::nullopt;
    // A folder's URL may end in slashes; the path names it without them, so it survives the way back.
    while (length > 1 && begin[length - 1] == '/')
        --length;
    // The player writes whole paths: "." and ".." would lead somewhere else than the name says.
    for (std::size_t i = 0; i < length; ++i) {
        if (begin[i] != '/' || i + 1 >= length || begin[i + 1] != '.')
            continue;
        const std::size_t dots = i + 2 < length && begin[i + 2] == '.' ? 2 : 1;
        if (i + 1 + dots == length || begin[i + 1 + dots] == '/')
            return std::nullopt;
    }
    const QByteArrayView bytes(begin, qsizetype(length));
    if (high < 0x80)
        return QString::fromLatin1(bytes);
    // A name that is not UTF-8 cannot be told to the player again: no location rather than a wrong one.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString result = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return result;
}

QByteArray CVFileURL::fileURLFromPath(const QString &path)
{
    return QByteArrayLiteral("file://localhost") + path.toUtf8().toPercentEncoding("/");
}
