#include "Library/CVPlistReader.h"

#include <QIODevice>

#include <array>
#include <charconv>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

using namespace Qt::StringLiterals;

namespace {

constexpr std::size_t kMaxDepth = 512;

// Character classes by table: these run for every byte of every tag.
enum : unsigned char { Space = 1, NameChar = 2 };

constexpr std::array<unsigned char, 256> kClasses = [] {
    std::array<unsigned char, 256> t {};
    for (char c : { ' ', '\n', '\r', '\t' })
        t[static_cast<unsigned char>(c)] = Space;
    for (int c = 0; c < 256; ++c)
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_'
            || c == ':' || c == '.')
            t[std::size_t(c)] = NameChar;
    return t;
}();

bool isSpace(char c)
{
    return kClasses[static_cast<unsigned char>(c)] == Space;
}

bool isNameChar(char c)
{
    return kClasses[static_cast<unsigned char>(c)] == NameChar;
}

std::string_view trimmed(std::string_view s)
{
    while (!s.empty() && isSpace(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && isSpace(s.back()))
        s.remove_suffix(1);
    return s;
}

void appendUtf8(std::string &out, char32_t cp)
{
    if (cp < 0x80) {
        out += char(cp);
    } else if (cp < 0x800) {
        out += char(0xC0 | (cp >> 6));
        out += char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += char(0xE0 | (cp >> 12));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    } else {
        out += char(0xF0 | (cp >> 18));
        out += char(0x80 | ((cp >> 12) & 0x3F));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    }
}

bool parseInteger(std::string_view s, qint64 &out)
{
    s = trimmed(s);
    bool negative = false;
    if (!s.empty() && (s.front() == '-' || s.front() == '+')) {
        negative = s.front() == '-';
        s.remove_prefix(1);
    }
    int base = 10;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        base = 16;
        s.remove_prefix(2);
    }
    if (s.empty())
        return false;
    quint64 magnitude = 0;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), magnitude, base);
    if (ec != std::errc() || end != s.data() + s.size())
        return false;
    if (negative) {
        if (magnitude > quint64(1) << 63)
            return false;
        out = qint64(0 - magnitude);
    } else {
        // Values past the signed range are kept bit for bit, as unsigned 64-bit plist integers.
        out = qint64(magnitude);
    }
    return true;
}

bool parseReal(std::string_view s, double &out)
{
    s = trimmed(s);
    if (!s.empty() && s.front() == '+')
        s.remove_prefix(1);
    if (s.empty())
        return false;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    if (ec == std::errc::result_out_of_range)
        return end == s.data() + s.size();
    return ec == std::errc() && end == s.data() + s.size();
}

bool digits(std::string_view s, std::size_t at, std::size_t count, int &out)
{
    out = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (s[i] < '0' || s[i] > '9')
            return false;
        out = out * 10 + (s[i] - '0');
    }
    return true;
}

// Days since 1970-01-01 of a proleptic Gregorian date.
qint64 daysFromCivil(qint64 y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const qint64 era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + qint64(doe) - 719468;
}

// "2009-03-14T21:05:07Z"
bool parseDate(std::string_view s, qint64 &out)
{
    s = trimmed(s);
    if (s.size() != 20 || s[4] != '-' || s[7] != '-' || s[10] != 'T' || s[13] != ':' || s[16] != ':' || s[19] != 'Z')
        return false;
    int y, mo, d, h, mi, se;
    if (!digits(s, 0, 4, y) || !digits(s, 5, 2, mo) || !digits(s, 8, 2, d) || !digits(s, 11, 2, h)
        || !digits(s, 14, 2, mi) || !digits(s, 17, 2, se))
        return false;
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || se > 60)
        return false;
    out = daysFromCivil(y, unsigned(mo), unsigned(d)) * 86400 + h * 3600 + mi * 60 + se;
    return true;
}

// The end of a text run: the first '<' from p on, or end. Also tells whether an entity or
// a carriage return came before it, which is when the text needs decoding. Sixteen bytes
// at a time: most of a library file is short texts between tags.
const char *scanText(const char *p, const char *end, bool &special)
{
#if defined(__SSE2__)
    const __m128i lt = _mm_set1_epi8('<');
    const __m128i amp = _mm_set1_epi8('&');
    const __m128i cr = _mm_set1_epi8('\r');
    while (end - p >= 16) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const unsigned stop = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(chunk, lt)));
        const unsigned odd
            = unsigned(_mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(chunk, amp), _mm_cmpeq_epi8(chunk, cr))));
        if (stop) {
            const unsigned at = unsigned(__builtin_ctz(stop));
            if (odd & ((1u << at) - 1))
                special = true;
            return p + at;
        }
        if (odd)
            special = true;
        p += 16;
    }
#endif
    for (; p < end; ++p) {
        if (*p == '<')
            return p;
        if (*p == '&' || *p == '\r')
            special = true;
    }
    return end;
}

enum class Tag { Unknown, Plist, Dict, Array, Key, String, Integer, Real, True, False, Date, Data };

// By length and first letter: one comparison per tag instead of a chain of them.
Tag classify(std::string_view n)
{
    switch (n.size()) {
    case 3:
        return std::memcmp(n.data(), "key", 3) == 0 ? Tag::Key : Tag::Unknown;
    case 4:
        switch (n[0]) {
        case 'd':
            if (std::memcmp(n.data(), "dict", 4) == 0)
                return Tag::Dict;
            if (std::memcmp(n.data(), "date", 4) == 0)
                return Tag::Date;
            return std::memcmp(n.data(), "data", 4) == 0 ? Tag::Data : Tag::Unknown;
        case 'r':
            return std::memcmp(n.data(), "real", 4) == 0 ? Tag::Real : Tag::Unknown;
        case 't':
            return std::memcmp(n.data(), "true", 4) == 0 ? Tag::True : Tag::Unknown;
        default:
            return Tag::Unknown;
        }
    case 5:
        if (std::memcmp(n.data(), "array", 5) == 0)
            return Tag::Array;
        if (std::memcmp(n.data(), "false", 5) == 0)
            return Tag::False;
        return std::memcmp(n.data(), "plist", 5) == 0 ? Tag::Plist : Tag::Unknown;
    case 6:
        return std::memcmp(n.data(), "string", 6) == 0 ? Tag::String : Tag::Unknown;
    case 7:
        return std::memcmp(n.data(), "integer", 7) == 0 ? Tag::Integer : Tag::Unknown;
    default:
        return Tag::Unknown;
    }
}

bool isBase64Text(std::string_view s)
{
    for (char c : s) {
        const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+'
            || c == '/' || c == '=' || isSpace(c);
        if (!ok)
            return false;
    }
    return true;
}

} // namespace

CVPlistReader::CVPlistReader(QByteArrayView document)
    : m_data(document.data())
    , m_size(std::size_t(document.size()))
    , m_eof(true)
    , m_document(document)
{
}

CVPlistReader::CVPlistReader(QIODevice *device, qsizetype chunkSize)
    : m_device(device)
    , m_chunkSize(qMax<qsizetype>(chunkSize, 64))
{
}

bool CVPlistReader::resume(qint64 offset, const Nesting &nesting)
{
    if (m_token != Token::None || offset < 0)
        return false;
    if (m_device) {
        if (!m_device->seek(offset))
            return false;
        m_base = offset;
        m_pos = m_size = 0;
    } else {
        if (offset > m_document.size())
            return false;
        m_pos = std::size_t(offset);
    }
    m_stack = nesting.frames;
    m_expectKey = nesting.expectKey;
    m_rootSeen = nesting.rootSeen;
    m_pendingEnd = nesting.pendingEnd;
    return true;
}

bool CVPlistReader::refill()
{
    if (m_eof)
        return false;
    // Keep the unread tail: the token under way starts at m_pos.
    const std::size_t keep = m_size - m_pos;
    if (m_pos > 0 && keep > 0)
        std::memmove(m_buffer.data(), m_buffer.data() + m_pos, keep);
    m_base += qint64(m_pos);
    m_pos = 0;
    m_size = keep;
    // A token longer than the buffer grows it.
    const std::size_t wanted = keep + std::size_t(m_chunkSize);
    if (m_buffer.size() < wanted)
        m_buffer.resize(qMax(wanted, m_buffer.size() * 2));
    const qint64 got = m_device->read(m_buffer.data() + keep, qint64(m_buffer.size() - keep));
    m_data = m_buffer.data();
    if (got <= 0) {
        m_eof = true;
        return false;
    }
    m_size += std::size_t(got);
    return true;
}

CVPlistReader::Token CVPlistReader::next()
{
    if (m_token == Token::Error || m_token == Token::EndDocument)
        return m_token;
    for (;;) {
        const Step step = tryParse();
        if (step == Step::Done)
            return m_token;
        if (!refill()) {
            // Out of input in the middle of something, or cleanly after the root.
            std::size_t p = m_pos;
            while (p < m_size && isSpace(m_data[p]))
                ++p;
            if (p == m_size && m_stack.empty() && m_rootSeen && !m_pendingEnd) {
                m_token = Token::EndDocument;
                return m_token;
            }
            fail(m_size, m_rootSeen || !m_stack.empty() ? u"unexpected end of file"_s : u"no property list found"_s);
            return m_token;
        }
    }
}

bool CVPlistReader::findSeq(std::size_t from, std::string_view seq, std::size_t &at) const
{
    if (from > m_size)
        return false;
    const std::string_view hay(m_data + from, m_size - from);
    const std::size_t found = hay.find(seq);
    if (found == std::string_view::npos)
        return false;
    at = from + found;
    return true;
}

CVPlistReader::Step CVPlistReader::tryParse()
{
    if (m_pendingEnd) {
        m_pendingEnd = false;
        const Frame frame = m_stack.back();
        m_stack.pop_back();
        m_token = frame == Frame::Dict ? Token::DictEnd : Token::ArrayEnd;
        endValue();
        return Step::Done;
    }
    for (;;) {
        std::size_t p = m_pos;
        if (m_base == 0 && p == 0 && m_size >= 3 && std::memcmp(m_data, "\xEF\xBB\xBF", 3) == 0)
            p = m_pos = 3;
        while (p < m_size && isSpace(m_data[p]))
            ++p;
        if (p >= m_size) {
            m_pos = p;
            return Step::NeedMore;
        }
        if (m_data[p] != '<') {
            fail(p, u"text outside of an element"_s);
            return Step::Done;
        }
        if (p + 1 >= m_size)
            return Step::NeedMore;
        if (quickScalar(p))
            return Step::Done;
        const char c = m_data[p + 1];
        if (c == '?' || c == '!') {
            std::size_t end;
            if (c == '?') {
                if (!findSeq(p + 2, "?>", end))
                    return Step::NeedMore;
                if (m_rootSeen || !m_stack.empty()) {
                    fail(p, u"processing instruction inside the property list"_s);
                    return Step::Done;
                }
                m_pos = end + 2;
            } else if (m_size - p >= 4 && std::memcmp(m_data + p, "<!--", 4) == 0) {
                if (!findSeq(p + 4, "-->", end))
                    return Step::NeedMore;
                m_pos = end + 3;
            } else if (m_size - p < 9) {
                return Step::NeedMore;
            } else if (std::memcmp(m_data + p, "<!DOCTYPE", 9) == 0) {
                std::size_t gt;
                if (!findSeq(p + 9, ">", gt))
                    return Step::NeedMore;
                std::size_t bracket;
                if (findSeq(p + 9, "[", bracket) && bracket < gt) {
                    if (!findSeq(bracket, "]>", end))
                        return Step::NeedMore;
                    gt = end + 1;
                }
                m_pos = gt + 1;
            } else {
                fail(p, u"unexpected markup"_s);
                return Step::Done;
            }
            continue;
        }
        return parseElement(p);
    }
}

// Keys, strings, integers and dates with plain content inside a dictionary are nearly all of a
// library: they are read here without the general path's tag scan. Anything else (entities,
// comments, a value out of place, bad content, a tag cut off by the buffer's end) goes the
// general way, which reads it or reports it as before.
bool CVPlistReader::quickScalar(std::size_t lt)
{
    if (m_stack.empty() || m_stack.back() != Frame::Dict)
        return false;
    const char *at = m_data + lt;
    const std::size_t available = m_size - lt;
    std::string_view name;
    Token token;
    if (m_expectKey) {
        if (available < 5 || std::memcmp(at, "<key>", 5) != 0)
            return false;
        name = "key";
        token = Token::Key;
    } else if (available >= 9 && std::memcmp(at, "<integer>", 9) == 0) {
        name = "integer";
        token = Token::Integer;
    } else if (available >= 8 && std::memcmp(at, "<string>", 8) == 0) {
        name = "string";
        token = Token::String;
    } else if (available >= 6 && std::memcmp(at, "<date>", 6) == 0) {
        name = "date";
        token = Token::Date;
    } else {
        return false;
    }
    const std::size_t contentStart = lt + name.size() + 2;
    bool special = false;
    const char *hit = scanText(m_data + contentStart, m_data + m_size, special);
    const auto q = std::size_t(hit - m_data);
    if (special || q + name.size() + 3 > m_size || m_data[q + 1] != '/' || m_data[q + 2 + name.size()] != '>'
        || std::memcmp(m_data + q + 2, name.data(), name.size()) != 0)
        return false;
    const std::string_view raw(m_data + contentStart, q - contentStart);
    if (token == Token::Integer) {
        if (!parseInteger(raw, m_integer))
            return false;
    } else if (token == Token::Date) {
        if (!parseDate(raw, m_integer))
            return false;
    } else {
        m_text = raw;
    }
    // A key is followed by its value; a value by the next key.
    m_expectKey = token != Token::Key;
    m_token = token;
    const std::size_t after = q + name.size() + 3;
    m_elementStart = m_base + qint64(lt);
    m_elementEnd = m_base + qint64(after);
    m_pos = after;
    return true;
}

CVPlistReader::Step CVPlistReader::parseElement(std::size_t lt)
{
    const bool closing = m_data[lt + 1] == '/';
    std::size_t n = lt + (closing ? 2 : 1);
    const std::size_t nameStart = n;
    while (n < m_size && isNameChar(m_data[n]))
        ++n;
    if (n >= m_size || (m_data[n] == '/' && n + 1 >= m_size))
        return Step::NeedMore;
    const std::string_view name(m_data + nameStart, n - nameStart);
    if (name.empty()) {
        fail(lt, u"malformed tag"_s);
        return Step::Done;
    }
    // Tags of a property list rarely carry attributes: find their end without a search.
    std::size_t gt;
    bool empty = false;
    if (m_data[n] == '>') {
        gt = n;
    } else if (m_data[n] == '/' && m_data[n + 1] == '>' && !closing) {
        gt = n + 1;
        empty = true;
    } else if (isSpace(m_data[n])) {
        if (!findSeq(n, ">", gt))
            return Step::NeedMore;
        empty = !closing && m_data[gt - 1] == '/';
        if (closing && trimmed(std::string_view(m_data + n, gt - n)).size() != 0) {
            fail(n, u"malformed closing tag"_s);
            return Step::Done;
        }
    } else {
        fail(n, u"malformed tag"_s);
        return Step::Done;
    }

    if (closing) {
        if (m_stack.empty()) {
            fail(lt, u"unexpected closing tag </%1>"_s.arg(QString::fromUtf8(name.data(), qsizetype(name.size()))));
            return Step::Done;
        }
        const Frame frame = m_stack.back();
        const Tag tag = classify(name);
        const bool matches = (frame == Frame::Dict && tag == Tag::Dict) || (frame == Frame::Array && tag == Tag::Array)
            || (frame == Frame::Plist && tag == Tag::Plist);
        if (!matches) {
            fail(lt, u"unexpected closing tag </%1>"_s.arg(QString::fromUtf8(name.data(), qsizetype(name.size()))));
            return Step::Done;
        }
        if (frame == Frame::Dict && !m_expectKey) {
            fail(lt, u"key without a value"_s);
            return Step::Done;
        }
        m_stack.pop_back();
        m_elementStart = m_base + qint64(lt);
        m_elementEnd = m_base + qint64(gt + 1);
        m_pos = gt + 1;
        if (frame == Frame::Plist) {
            if (!m_rootSeen) {
                fail(lt, u"empty property list"_s);
                return Step::Done;
            }
            return tryParse();
        }
        m_token = frame == Frame::Dict ? Token::DictEnd : Token::ArrayEnd;
        endValue();
        return Step::Done;
    }

    const Tag tag = classify(name);
    if (tag == Tag::Plist) {
        if (!m_stack.empty() || m_rootSeen) {
            fail(lt, u"misplaced <plist>"_s);
            return Step::Done;
        }
        m_pos = gt + 1;
        if (empty) {
            fail(lt, u"empty property list"_s);
            return Step::Done;
        }
        m_stack.push_back(Frame::Plist);
        return tryParse();
    }
    if (tag == Tag::Dict || tag == Tag::Array) {
        if (!beginValue(lt))
            return Step::Done;
        if (m_stack.size() >= kMaxDepth) {
            fail(lt, u"nesting too deep"_s);
            return Step::Done;
        }
        const bool dict = tag == Tag::Dict;
        m_stack.push_back(dict ? Frame::Dict : Frame::Array);
        m_expectKey = dict;
        m_pos = gt + 1;
        m_pendingEnd = empty;
        m_token = dict ? Token::DictBegin : Token::ArrayBegin;
        return Step::Done;
    }
    return parseScalar(int(tag), name, lt, gt + 1, empty);
}

CVPlistReader::Step CVPlistReader::parseScalar(
    int tagKind, std::string_view name, std::size_t tagOffset, std::size_t contentStart, bool empty)
{
    const auto tag = Tag(tagKind);
    Token token;
    if (tag == Tag::Key)
        token = Token::Key;
    else if (tag == Tag::String)
        token = Token::String;
    else if (tag == Tag::Integer)
        token = Token::Integer;
    else if (tag == Tag::Real)
        token = Token::Real;
    else if (tag == Tag::True || tag == Tag::False)
        token = Token::Boolean;
    else if (tag == Tag::Date)
        token = Token::Date;
    else if (tag == Tag::Data)
        token = Token::Data;
    else {
        fail(tagOffset, u"unknown element <%1>"_s.arg(QString::fromUtf8(name.data(), qsizetype(name.size()))));
        return Step::Done;
    }

    // Find the content and the end tag. Comments and CDATA may sit inside text.
    std::string_view raw;
    std::size_t after = contentStart;
    bool plain = true;
    bool special = false;
    if (!empty) {
        std::size_t p = contentStart;
        for (;;) {
            const char *hit = scanText(m_data + p, m_data + m_size, special);
            if (hit == m_data + m_size)
                return Step::NeedMore;
            const std::size_t q = std::size_t(hit - m_data);
            if (m_size - q < 2 + name.size() + 1)
                return Step::NeedMore;
            if (m_data[q + 1] == '/') {
                const std::size_t gt = q + 2 + name.size();
                if (m_data[gt] != '>' || std::memcmp(m_data + q + 2, name.data(), name.size()) != 0) {
                    fail(q,
                        u"mismatched closing tag in <%1>"_s.arg(
                            QString::fromUtf8(name.data(), qsizetype(name.size()))));
                    return Step::Done;
                }
                raw = std::string_view(m_data + contentStart, q - contentStart);
                after = gt + 1;
                break;
            }
            std::size_t end;
            if (m_size - q >= 9 && std::memcmp(m_data + q, "<![CDATA[", 9) == 0) {
                if (!findSeq(q + 9, "]]>", end))
                    return Step::NeedMore;
                p = end + 3;
                plain = false;
            } else if (m_size - q >= 4 && std::memcmp(m_data + q, "<!--", 4) == 0) {
                if (!findSeq(q + 4, "-->", end))
                    return Step::NeedMore;
                p = end + 3;
                plain = false;
            } else if (m_size - q < 9 && (m_data[q + 1] == '!')) {
                return Step::NeedMore;
            } else {
                fail(q, u"element inside <%1>"_s.arg(QString::fromUtf8(name.data(), qsizetype(name.size()))));
                return Step::Done;
            }
        }
    }

    if (token == Token::Key) {
        if (m_stack.empty() || m_stack.back() != Frame::Dict || !m_expectKey) {
            fail(tagOffset, u"<key> outside of a dictionary"_s);
            return Step::Done;
        }
    } else if (!beginValue(tagOffset)) {
        return Step::Done;
    }

    if (token == Token::Key || token == Token::String) {
        if (plain && !special) {
            m_text = raw;
        } else {
            if (plain) {
                if (!decodeText(raw, contentStart))
                    return Step::Done;
            } else {
                // Rebuild the text from its plain, CDATA and comment pieces.
                std::string joined;
                std::size_t p = 0;
                while (p < raw.size()) {
                    const std::size_t q = raw.find('<', p);
                    const std::string_view piece = raw.substr(p, q == std::string_view::npos ? raw.npos : q - p);
                    if (!decodeText(piece, contentStart + p))
                        return Step::Done;
                    joined += m_text;
                    if (q == std::string_view::npos)
                        break;
                    if (raw.compare(q, 9, "<![CDATA[") == 0) {
                        const std::size_t e = raw.find("]]>", q + 9);
                        joined.append(raw.substr(q + 9, e - q - 9));
                        p = e + 3;
                    } else {
                        p = raw.find("-->", q + 4) + 3;
                    }
                }
                m_scratch = std::move(joined);
                m_text = m_scratch;
            }
        }
        if (token == Token::Key)
            m_expectKey = false;
        else
            endValue();
    } else {
        const std::string_view content = trimmed(raw);
        bool ok = true;
        switch (token) {
        case Token::Integer:
            ok = parseInteger(content, m_integer);
            break;
        case Token::Real:
            ok = parseReal(content, m_real);
            break;
        case Token::Boolean:
            ok = content.empty() && plain;
            m_integer = tag == Tag::True ? 1 : 0;
            break;
        case Token::Date:
            ok = parseDate(content, m_integer);
            break;
        case Token::Data:
            ok = plain && isBase64Text(raw);
            m_text = raw;
            break;
        default:
            break;
        }
        if (!ok) {
            fail(
                contentStart, u"invalid content of <%1>"_s.arg(QString::fromUtf8(name.data(), qsizetype(name.size()))));
            return Step::Done;
        }
        endValue();
    }
    m_token = token;
    m_elementStart = m_base + qint64(tagOffset);
    m_elementEnd = m_base + qint64(empty ? contentStart : after);
    m_pos = after;
    return Step::Done;
}

bool CVPlistReader::decodeText(std::string_view raw, std::size_t offset)
{
    m_scratch.clear();
    m_scratch.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        const char c = raw[i];
        if (c == '\r') {
            // XML reads CR LF and a lone CR as LF.
            m_scratch += '\n';
            if (i + 1 < raw.size() && raw[i + 1] == '\n')
                ++i;
            continue;
        }
        if (c != '&') {
            m_scratch += c;
            continue;
        }
        const std::size_t semi = raw.find(';', i + 1);
        if (semi == std::string_view::npos || semi - i > 12)
            return fail(offset + i, u"malformed entity"_s);
        const std::string_view entity = raw.substr(i + 1, semi - i - 1);
        if (entity == "lt")
            m_scratch += '<';
        else if (entity == "gt")
            m_scratch += '>';
        else if (entity == "amp")
            m_scratch += '&';
        else if (entity == "quot")
            m_scratch += '"';
        else if (entity == "apos")
            m_scratch += '\'';
        else if (entity.size() >= 2 && entity[0] == '#') {
            const bool hex = entity[1] == 'x' || entity[1] == 'X';
            const std::string_view num = entity.substr(hex ? 2 : 1);
            quint32 cp = 0;
            auto [end, ec] = std::from_chars(num.data(), num.data() + num.size(), cp, hex ? 16 : 10);
            if (num.empty() || ec != std::errc() || end != num.data() + num.size() || cp == 0 || cp > 0x10FFFF
                || (cp >= 0xD800 && cp <= 0xDFFF))
                return fail(offset + i, u"invalid character reference"_s);
            appendUtf8(m_scratch, char32_t(cp));
        } else {
            return fail(offset + i, u"unknown entity"_s);
        }
        i = semi;
    }
    m_text = m_scratch;
    return true;
}

bool CVPlistReader::beginValue(std::size_t offset)
{
    if (m_stack.empty() || m_stack.back() == Frame::Plist) {
        if (m_rootSeen)
            return fail(offset, u"more than one top-level value"_s);
        m_rootSeen = true;
        return true;
    }
    if (m_stack.back() == Frame::Dict && m_expectKey)
        return fail(offset, u"value without a key"_s);
    return true;
}

void CVPlistReader::endValue()
{
    if (!m_stack.empty() && m_stack.back() == Frame::Dict)
        m_expectKey = true;
}

bool CVPlistReader::skipValue()
{
    if (m_token != Token::DictBegin && m_token != Token::ArrayBegin)
        return m_token != Token::Error;
    const int target = depth() - 1;
    for (;;) {
        const Token t = next();
        if (t == Token::Error || t == Token::EndDocument)
            return false;
        if ((t == Token::DictEnd || t == Token::ArrayEnd) && depth() == target)
            return true;
    }
}

QByteArray CVPlistReader::data() const
{
    QByteArray compact;
    compact.reserve(qsizetype(m_text.size()));
    for (char c : m_text)
        if (!isSpace(c))
            compact.append(c);
    auto decoded = QByteArray::fromBase64Encoding(compact, QByteArray::AbortOnBase64DecodingErrors);
    return decoded ? *decoded : QByteArray();
}

bool CVPlistReader::fail(std::size_t offset, const QString &message)
{
    if (m_token == Token::Error)
        return false;
    m_token = Token::Error;
    m_error = message;
    locate(m_base + qint64(offset));
    m_text = {};
    return false;
}

void CVPlistReader::locate(qint64 absoluteOffset)
{
    // Lines are only counted when something went wrong, so reading stays a straight scan.
    qint64 line = 1;
    qint64 lineStart = 0;
    auto count = [&](const char *bytes, qint64 n, qint64 base) {
        for (qint64 i = 0; i < n; ++i) {
            if (bytes[i] == '\n') {
                ++line;
                lineStart = base + i + 1;
            }
        }
    };
    if (!m_device) {
        count(m_document.data(), qMin<qint64>(absoluteOffset, m_document.size()), 0);
    } else if (!m_device->isSequential() && m_device->seek(0)) {
        QByteArray chunk;
        qint64 done = 0;
        while (done < absoluteOffset) {
            chunk = m_device->read(qMin<qint64>(1 << 20, absoluteOffset - done));
            if (chunk.isEmpty())
                break;
            count(chunk.constData(), chunk.size(), done);
            done += chunk.size();
        }
    } else {
        // Only what is still buffered can be counted.
        count(m_data, qint64(qMin<std::size_t>(std::size_t(absoluteOffset - m_base), m_size)), m_base);
        line = -1;
    }
    m_errorLine = line;
    m_errorColumn = absoluteOffset - lineStart + 1;
}

QString CVPlistReader::errorDescription() const
{
    if (m_errorLine < 0)
        return u"byte %1: %2"_s.arg(m_errorColumn).arg(m_error);
    return u"line %1, column %2: %3"_s.arg(m_errorLine).arg(m_errorColumn).arg(m_error);
}
