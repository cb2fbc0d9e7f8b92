#include "Library/CVRhythmDB.h"

#include "Library/CVFileURL.h"
#include "Platform/CVVolumes.h"

#include <QFile>

#include <array>
#include <cstring>

using namespace Qt::StringLiterals;

namespace CVRhythmDB {

bool isKnownVersion(std::string_view version)
{
    // 2.0 since Rhythmbox 2.9x; earlier files are upgraded by Rhythmbox itself when it loads them.
    return version == "2.0";
}

QByteArray fileURIFromPath(const QString &path)
{
    // GLib's set of characters a path keeps unescaped in a URI; everything else is %XX.
    static const auto keeps = [] {
        std::array<bool, 256> table {};
        for (int c = 'a'; c <= 'z'; ++c)
            table[std::size_t(c)] = true;
        for (int c = 'A'; c <= 'Z'; ++c)
            table[std::size_t(c)] = true;
        for (int c = '0'; c <= '9'; ++c)
            table[std::size_t(c)] = true;
        for (char c : std::string_view("!$&'()*+,-./:=@_~"))
            table[std::size_t(static_cast<unsigned char>(c))] = true;
        return table;
    }();
    static const char hex[] = "0123456789ABCDEF";
    const QByteArray bytes = QFile::encodeName(path);
    QByteArray uri;
    uri.reserve(bytes.size() + 16);
    uri.append("file://");
    for (char ch : bytes) {
        const auto c = static_cast<unsigned char>(ch);
        if (keeps[c]) {
            uri.append(ch);
        } else {
            uri.append('%');
            uri.append(hex[c >> 4]);
            uri.append(hex[c & 15]);
        }
    }
    return uri;
}

std::optional<QString> pathFromURI(QByteArrayView uri)
{
    return CVFileURL::pathFromFileURL(std::string_view(uri.data(), std::size_t(uri.size())));
}

std::optional<QByteArray> mountPointForPath(const QString &path)
{
    const QString root = CVVolumes::driveRootOfPath(path);
    if (root.isEmpty())
        return std::nullopt;
    return fileURIFromPath(root);
}

QByteArray decodeText(QByteArrayView raw)
{
    if (!raw.contains('&'))
        return raw.toByteArray();
    QByteArray out;
    out.reserve(raw.size());
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const char c = raw[i];
        if (c != '&') {
            out.append(c);
            continue;
        }
        const qsizetype semi = raw.indexOf(';', i);
        if (semi < 0 || semi - i > 10) {
            out.append(c);
            continue;
        }
        const QByteArrayView name = raw.sliced(i + 1, semi - i - 1);
        char32_t code = 0;
        if (name == "amp")
            code = '&';
        else if (name == "lt")
            code = '<';
        else if (name == "gt")
            code = '>';
        else if (name == "quot")
            code = '"';
        else if (name == "apos")
            code = '\'';
        else if (name.startsWith('#')) {
            bool ok = false;
            const bool hexadecimal = name.size() > 1 && (name[1] == 'x' || name[1] == 'X');
            code = char32_t(name.sliced(hexadecimal ? 2 : 1).toUInt(&ok, hexadecimal ? 16 : 10));
            if (!ok || code == 0 || code > 0x10FFFF)
                code = 0;
        }
        if (code == 0) {
            out.append(c); // not an entity Corvana knows: kept as written
            continue;
        }
        out.append(QString::fromUcs4(&code, 1).toUtf8());
        i = semi;
    }
    return out;
}

QByteArray encodeText(QByteArrayView text)
{
    QByteArray out;
    out.reserve(text.size() + 8);
    for (char c : text) {
        if (c == '&')
            out.append("&amp;");
        else if (c == '<')
            out.append("&lt;");
        else if (c == '>')
            out.append("&gt;");
        else
            out.append(c);
    }
    return out;
}

Scanner::Scanner(QByteArrayView document)
    : m_doc(document)
{
}

bool Scanner::fail(const char *what)
{
    if (!m_error.isEmpty())
        return false;
    const qint64 at = qMin(m_pos, qint64(m_doc.size()));
    qint64 line = 1;
    qint64 lineStart = 0;
    for (qint64 i = 0; i < at; ++i) {
        if (m_doc[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    }
    m_error = u"line %1, column %2: %3"_s.arg(line).arg(at - lineStart + 1).arg(QString::fromLatin1(what));
    return false;
}

void Scanner::skipSpace()
{
    while (m_pos < m_doc.size()) {
        const char c = m_doc[m_pos];
        if (c != ' ' && c != '\n' && c != '\t' && c != '\r')
            break;
        ++m_pos;
    }
}

bool Scanner::skipMisc()
{
    for (;;) {
        skipSpace();
        const QByteArrayView rest = m_doc.sliced(m_pos);
        QByteArrayView close;
        if (rest.startsWith("<!--"))
            close = "-->";
        else if (rest.startsWith("<?"))
            close = "?>";
        else if (rest.startsWith("<!"))
            close = ">";
        else
            return true;
        const qsizetype end = rest.indexOf(close);
        if (end < 0)
            return fail("a comment or declaration is not closed");
        m_pos += end + close.size();
    }
}

bool Scanner::readTagName(std::string_view &name)
{
    const qint64 start = m_pos;
    while (m_pos < m_doc.size()) {
        const char c = m_doc[m_pos];
        if (c == ' ' || c == '>' || c == '/' || c == '\n' || c == '\t' || c == '\r')
            break;
        ++m_pos;
    }
    if (m_pos == start || m_pos >= m_doc.size())
        return fail("an element has no name");
    name = std::string_view(m_doc.data() + start, std::size_t(m_pos - start));
    return true;
}

// After the name: up to and including '>'. The attributes are kept as one view.
bool Scanner::readAttributes(bool &selfClosing)
{
    const qint64 start = m_pos;
    char quote = 0;
    while (m_pos < m_doc.size()) {
        const char c = m_doc[m_pos];
        if (quote) {
            if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            selfClosing = m_pos > start && m_doc[m_pos - 1] == '/';
            m_attributes = std::string_view(m_doc.data() + start, std::size_t(m_pos - start));
            ++m_pos;
            return true;
        } else if (c == '<') {
            return fail("a tag is not closed");
        }
        ++m_pos;
    }
    return fail("a tag is not closed");
}

std::string_view Scanner::attribute(std::string_view name) const
{
    std::size_t at = 0;
    while ((at = m_attributes.find(name, at)) != std::string_view::npos) {
        const bool startsWord
            = at == 0 || m_attributes[at - 1] == ' ' || m_attributes[at - 1] == '\t' || m_attributes[at - 1] == '\n';
        std::size_t p = at + name.size();
        while (p < m_attributes.size() && m_attributes[p] == ' ')
            ++p;
        if (startsWord && p < m_attributes.size() && m_attributes[p] == '=') {
            ++p;
            while (p < m_attributes.size() && m_attributes[p] == ' ')
                ++p;
            if (p < m_attributes.size() && (m_attributes[p] == '"' || m_attributes[p] == '\'')) {
                const std::size_t end = m_attributes.find(m_attributes[p], p + 1);
                if (end != std::string_view::npos)
                    return m_attributes.substr(p + 1, end - p - 1);
            }
        }
        at += name.size();
    }
    return {};
}

bool Scanner::readHeader(std::string_view root)
{
    if (m_doc.startsWith("\xEF\xBB\xBF"))
        m_pos = 3;
    if (!skipMisc())
        return false;
    if (m_pos >= m_doc.size() || m_doc[m_pos] != '<')
        return fail("the file does not begin with an element");
    ++m_pos;
    std::string_view name;
    if (!readTagName(name))
        return false;
    if (name != root)
        return fail(
            root == "rhythmdb" ? "the file is not a Rhythmbox library" : "the file is not a Rhythmbox playlist file");
    bool selfClosing = false;
    if (!readAttributes(selfClosing))
        return false;
    m_root = name;
    m_version = attribute("version");
    m_atEnd = selfClosing;
    return true;
}

bool Scanner::nextElement(std::string_view name)
{
    for (;;) {
        if (m_atEnd || hasError())
            return false;
        if (!skipMisc())
            return false;
        if (m_pos >= m_doc.size())
            return fail("the file ends before its last element is closed");
        if (m_doc[m_pos] != '<')
            return fail("text where an element was expected");
        m_elementStart = m_pos;
        if (m_pos + 1 < m_doc.size() && m_doc[m_pos + 1] == '/') {
            m_pos += 2;
            std::string_view closing;
            if (!readTagName(closing))
                return false;
            if (closing != m_root)
                return fail("an end tag does not match its element");
            skipSpace();
            if (m_pos >= m_doc.size() || m_doc[m_pos] != '>')
                return fail("an end tag is not closed");
            ++m_pos;
            m_atEnd = true;
            return false;
        }
        ++m_pos;
        std::string_view tag;
        if (!readTagName(tag) || !readAttributes(m_selfClosing))
            return false;
        if (tag == name) {
            m_elementEnd = m_selfClosing ? m_pos : -1;
            return true;
        }
        // Another kind of element: stepped over whole.
        Field ignored;
        while (!m_selfClosing && nextField(ignored)) { }
        if (hasError())
            return false;
    }
}

bool Scanner::nextField(Field &field)
{
    if (m_selfClosing) {
        m_selfClosing = false;
        m_elementEnd = m_pos;
        return false;
    }
    if (!skipMisc())
        return false;
    if (m_pos >= m_doc.size())
        return fail("the file ends inside an element");
    if (m_doc[m_pos] != '<')
        return fail("text where an element was expected");
    field.start = m_pos;
    if (m_pos + 1 < m_doc.size() && m_doc[m_pos + 1] == '/') {
        const qsizetype close = m_doc.sliced(m_pos).indexOf('>');
        if (close < 0)
            return fail("an end tag is not closed");
        m_pos += close + 1;
        m_elementEnd = m_pos;
        return false;
    }
    ++m_pos;
    if (!readTagName(field.name))
        return false;
    bool selfClosing = false;
    if (!readAttributes(selfClosing))
        return false;
    qint64 lineStart = field.start;
    while (lineStart > 0 && m_doc[lineStart - 1] != '\n')
        --lineStart;
    field.lineStart = lineStart;
    if (selfClosing) {
        field.raw = {};
        field.end = m_pos;
        return true;
    }
    // Text up to the matching end tag; nested elements (a smart playlist's query) are kept raw.
    const qint64 contentStart = m_pos;
    int depth = 0;
    for (;;) {
        const void *found = std::memchr(m_doc.data() + m_pos, '<', std::size_t(m_doc.size() - m_pos));
        if (!found)
            return fail("an element is not closed");
        m_pos = static_cast<const char *>(found) - m_doc.data();
        const QByteArrayView rest = m_doc.sliced(m_pos);
        if (rest.startsWith("<!--") || rest.startsWith("<![CDATA[")) {
            const QByteArrayView close = rest.startsWith("<!--") ? QByteArrayView("-->") : QByteArrayView("]]>");
            const qsizetype end = rest.indexOf(close);
            if (end < 0)
                return fail("a comment or CDATA section is not closed");
            m_pos += end + close.size();
            continue;
        }
        const qsizetype close = rest.indexOf('>');
        if (close < 0)
            return fail("a tag is not closed");
        if (rest.size() > 1 && rest[1] == '/') {
            if (depth == 0) {
                const std::string_view name(rest.data() + 2, std::size_t(close - 2));
                if (name.substr(0, field.name.size()) != field.name)
                    return fail("an end tag does not match its element");
                field.raw = std::string_view(m_doc.data() + contentStart, std::size_t(m_pos - contentStart));
                m_pos += close + 1;
                field.end = m_pos;
                return true;
            }
            --depth;
        } else if (rest[close - 1] != '/') {
            ++depth;
        }
        m_pos += close + 1;
    }
}

} // namespace CVRhythmDB
