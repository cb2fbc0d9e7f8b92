#include "Library/CVFilter.h"

#include "Platform/CVLog.h"

#include <QHash>
#include <QMutex>

using namespace Qt::StringLiterals;

namespace {

bool isIdentifierChar(QChar c)
{
    return c.isLetterOrNumber() || c == u'_' || c == u'.' || c == u'@';
}

// The second reading of a quoted value: a backslash makes the next character literal.
QString resolveEscapes(const QString &value)
{
    if (!value.contains(u'\\'))
        return value;
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == u'\\' && i + 1 < value.size())
            ++i;
        out += value[i];
    }
    return out;
}

} // namespace

// Recursive descent over the tokens of one text; OR binds loosest, then AND, and a clause
// that starts with "(" right after another clause is joined to it with AND.
class CVFilterParser {
public:
    explicit CVFilterParser(const QString &text)
        : m_text(text)
    {
    }

    std::shared_ptr<CVFilter> run(QString *error)
    {
        auto filter = std::make_shared<CVFilter>();
        m_filter = filter.get();
        m_filter->m_nodes.emplace_back(); // the root, filled in below
        skipSpace();
        const int root = m_pos < m_text.size() ? parseOr() : -1;
        skipSpace();
        if (m_error.isEmpty() && root < 0)
            m_error = u"empty filter"_s;
        if (m_error.isEmpty() && m_pos < m_text.size())
            m_error = u"unexpected text at %1"_s.arg(m_pos);
        if (!m_error.isEmpty()) {
            if (error)
                *error = m_error;
            return nullptr;
        }
        m_filter->m_nodes[0] = m_filter->m_nodes[std::size_t(root)];
        m_filter->m_valid = true;
        return filter;
    }

private:
    using Node = CVFilter::Node;
    using Leaf = CVFilter::Leaf;

    void skipSpace()
    {
        while (m_pos < m_text.size() && m_text[m_pos].isSpace())
            ++m_pos;
    }

    bool take(QStringView word, bool keyword = false)
    {
        skipSpace();
        if (m_text.size() - m_pos < word.size())
            return false;
        const QStringView here = QStringView(m_text).mid(m_pos, word.size());
        if (keyword ? here.compare(word, Qt::CaseInsensitive) != 0 : here != word)
            return false;
        // A keyword must not run on into an identifier ("ORDER" is not "OR").
        if (keyword && m_pos + word.size() < m_text.size() && isIdentifierChar(m_text[m_pos + word.size()]))
            return false;
        m_pos += word.size();
        return true;
    }

    bool peek(QChar c)
    {
        skipSpace();
        return m_pos < m_text.size() && m_text[m_pos] == c;
    }

    int addLeaf(int leaf)
    {
        m_filter->m_nodes.push_back({ Node::Kind::Leaf, leaf, {} });
        return int(m_filter->m_nodes.size() - 1);
    }

    // Joins right onto left; operands of the same kind are taken in, so chains stay flat
    // (and are built in linear time).
    int join(Node::Kind kind, int left, int right)
    {
        if (m_filter->m_nodes[std::size_t(left)].kind != kind) {
            m_filter->m_nodes.push_back({ kind, -1, { left } });
            left = int(m_filter->m_nodes.size() - 1);
        }
        std::vector<int> taken;
        if (m_filter->m_nodes[std::size_t(right)].kind == kind)
            taken = m_filter->m_nodes[std::size_t(right)].children;
        else
            taken.push_back(right);
        std::vector<int> &children = m_filter->m_nodes[std::size_t(left)].children;
        children.insert(children.end(), taken.begin(), taken.end());
        return left;
    }

    int parseOr()
    {
        int left = parseAnd();
        while (left >= 0 && (take(u"||") || take(u"OR", true))) {
            const int right = parseAnd();
            if (right < 0)
                return -1;
            left = join(Node::Kind::Or, left, right);
        }
        return left;
    }

    int parseAnd()
    {
        int left = parsePrimary();
        while (left >= 0) {
            if (take(u"&&") || take(u"AND", true)) {
            } else if (!peek(u'(')) {
                break;
            }
            const int right = parsePrimary();
            if (right < 0)
                return -1;
            left = join(Node::Kind::And, left, right);
        }
        return left;
    }

    int parsePrimary()
    {
        if (++m_depth > 200)
            return fail(u"nesting too deep"_s);
        int result;
        if (take(u"(")) {
            result = parseOr();
            if (result >= 0 && !take(u")"))
                result = fail(u"missing )"_s);
        } else {
            result = parseComparison();
        }
        --m_depth;
        return result;
    }

    int parseComparison()
    {
        skipSpace();
        const qsizetype start = m_pos;
        while (m_pos < m_text.size() && isIdentifierChar(m_text[m_pos]))
            ++m_pos;
        if (m_pos == start)
            return fail(u"attribute expected at %1"_s.arg(start));
        Leaf leaf;
        leaf.attribute = m_text.mid(start, m_pos - start);
        leaf.trackAttribute = CVAttribute::fromName(leaf.attribute);

        if (take(u"==") || take(u"="))
            leaf.op = Leaf::Op::Equal;
        else if (take(u"!=") || take(u"<>"))
            leaf.op = Leaf::Op::NotEqual;
        else if (take(u"LIKE", true))
            leaf.op = Leaf::Op::Like;
        else if (take(u"BEGINSWITH", true))
            leaf.op = Leaf::Op::BeginsWith;
        else
            return fail(u"operator expected at %1"_s.arg(m_pos));
        if (take(u"[")) {
            while (m_pos < m_text.size() && m_text[m_pos] != u']') {
                const QChar o = m_text[m_pos++].toLower();
                if (o == u'c')
                    leaf.fold |= CVFilter::CaseFold;
                else if (o == u'd')
                    leaf.fold |= CVFilter::DiacriticFold;
                else if (o != u'n')
                    return fail(u"unknown option"_s);
            }
            if (!take(u"]"))
                return fail(u"missing ]"_s);
        }

        skipSpace();
        if (m_pos >= m_text.size())
            return fail(u"value expected"_s);
        const QChar q = m_text[m_pos];
        if (q == u'\'' || q == u'"') {
            ++m_pos;
            QString raw;
            bool closed = false;
            while (m_pos < m_text.size()) {
                const QChar c = m_text[m_pos++];
                if (c == q) {
                    closed = true;
                    break;
                }
                if (c == u'\\' && m_pos < m_text.size()) {
                    const QChar n = m_text[m_pos];
                    // The first reading: \\, \' and \" stand for themselves; other
                    // backslashes stay for the comparison to read.
                    if (n == u'\\' || n == u'\'' || n == u'"') {
                        raw += n;
                        ++m_pos;
                        continue;
                    }
                }
                raw += c;
            }
            if (!closed)
                return fail(u"unterminated text"_s);
            leaf.valueKind = CVFilterValue::Kind::Text;
            if (leaf.op == Leaf::Op::Like)
                leaf.pattern = compilePattern(raw, leaf.fold);
            else
                leaf.text = CVFilter::foldText(resolveEscapes(raw), leaf.fold);
        } else if (take(u"NULL", true) || take(u"NIL", true)) {
            leaf.valueKind = CVFilterValue::Kind::Absent;
        } else if (take(u"TRUE", true) || take(u"YES", true)) {
            leaf.valueKind = CVFilterValue::Kind::Number;
            leaf.number = 1;
        } else if (take(u"FALSE", true) || take(u"NO", true)) {
            leaf.valueKind = CVFilterValue::Kind::Number;
            leaf.number = 0;
        } else {
            const qsizetype numberStart = m_pos;
            if (m_pos < m_text.size() && (m_text[m_pos] == u'-' || m_text[m_pos] == u'+'))
                ++m_pos;
            while (m_pos < m_text.size() && (m_text[m_pos].isDigit() || m_text[m_pos] == u'.'))
                ++m_pos;
            bool ok = false;
            leaf.number = m_text.mid(numberStart, m_pos - numberStart).toDouble(&ok);
            if (!ok)
                return fail(u"value expected at %1"_s.arg(numberStart));
            leaf.valueKind = CVFilterValue::Kind::Number;
        }
        m_filter->m_leaves.push_back(std::move(leaf));
        return addLeaf(int(m_filter->m_leaves.size() - 1));
    }

    static CVFilter::Pattern compilePattern(const QString &raw, quint8 fold)
    {
        using Piece = CVFilter::Pattern::Piece;
        CVFilter::Pattern pattern;
        QString literal;
        // Literal runs are folded whole (folding can change their length), then kept a
        // character a piece.
        auto flush = [&] {
            for (QChar c : CVFilter::foldText(literal, fold))
                pattern.pieces.emplace_back(Piece::Literal, c);
            literal.clear();
        };
        for (qsizetype i = 0; i < raw.size(); ++i) {
            const QChar c = raw[i];
            if (c == u'\\' && i + 1 < raw.size()) {
                literal += raw[++i];
            } else if (c == u'*') {
                flush();
                if (pattern.pieces.empty() || pattern.pieces.back().first != Piece::AnyRun)
                    pattern.pieces.emplace_back(Piece::AnyRun, QChar());
            } else if (c == u'?') {
                flush();
                pattern.pieces.emplace_back(Piece::AnyOne, QChar());
            } else {
                literal += c;
            }
        }
        flush();
        // Without "?" a pattern is literal runs between stars, found by plain text search.
        pattern.runsOnly = std::none_of(
            pattern.pieces.cbegin(), pattern.pieces.cend(), [](const auto &p) { return p.first == Piece::AnyOne; });
        if (pattern.runsOnly) {
            pattern.anchoredStart = !pattern.pieces.empty() && pattern.pieces.front().first != Piece::AnyRun;
            pattern.anchoredEnd = !pattern.pieces.empty() && pattern.pieces.back().first != Piece::AnyRun;
            QString run;
            for (const auto &[piece, c] : pattern.pieces) {
                if (piece == Piece::AnyRun) {
                    if (!run.isEmpty())
                        pattern.runs.push_back(run);
                    run.clear();
                } else {
                    run += c;
                }
            }
            if (!run.isEmpty())
                pattern.runs.push_back(run);
        }
        return pattern;
    }

    int fail(const QString &message)
    {
        if (m_error.isEmpty())
            m_error = message;
        return -1;
    }

    const QString &m_text;
    qsizetype m_pos = 0;
    int m_depth = 0;
    CVFilter *m_filter = nullptr;
    QString m_error;
};

std::shared_ptr<const CVFilter> CVFilter::parse(const QString &text, QString *error)
{
    return CVFilterParser(text).run(error);
}

std::shared_ptr<const CVFilter> CVFilter::compile(const QString &text)
{
    static QMutex mutex;
    static QHash<QString, std::shared_ptr<const CVFilter>> cache;
    QMutexLocker lock(&mutex);
    const auto it = cache.constFind(text);
    if (it != cache.cend())
        return *it;
    QString error;
    std::shared_ptr<const CVFilter> filter = parse(text, &error);
    if (!filter) {
        CVLog::log(u"Corvana cannot read the filter \"%1\": %2"_s.arg(text, error));
        Q_ASSERT_X(false, "CVFilter::compile", "a filter text that does not parse");
        filter = std::make_shared<CVFilter>(); // selects nothing
    }
    cache.insert(text, filter);
    return filter;
}

namespace {

// Latin-1 letters without their marks: what canonical decomposition and dropping the
// combining marks gives, so that Western names fold without a full normalisation.
constexpr char16_t kLatin1Base[64] = {
    u'A',
    u'A',
    u'A',
    u'A',
    u'A',
    u'A',
    u'\u00C6',
    u'C',
    u'E',
    u'E',
    u'E',
    u'E',
    u'I',
    u'I',
    u'I',
    u'I',
    u'\u00D0',
    u'N',
    u'O',
    u'O',
    u'O',
    u'O',
    u'O',
    u'\u00D7',
    u'\u00D8',
    u'U',
    u'U',
    u'U',
    u'U',
    u'Y',
    u'\u00DE',
    u'\u00DF',
    u'a',
    u'a',
    u'a',
    u'a',
    u'a',
    u'a',
    u'\u00E6',
    u'c',
    u'e',
    u'e',
    u'e',
    u'e',
    u'i',
    u'i',
    u'i',
    u'i',
    u'\u00F0',
    u'n',
    u'o',
    u'o',
    u'o',
    u'o',
    u'o',
    u'\u00F7',
    u'\u00F8',
    u'u',
    u'u',
    u'u',
    u'u',
    u'y',
    u'\u00FE',
    u'y',
};

bool isCombiningMark(char16_t c)
{
    return c >= 0x0300 && c <= 0x036F;
}

} // namespace

QString CVFilter::foldText(const QString &text, quint8 fold)
{
    if (!fold)
        return text;
    // One pass for text in Latin-1 with combining marks; anything else takes Unicode's way.
    QString out(text.size(), Qt::Uninitialized);
    QChar *o = out.data();
    bool simple = true;
    for (QChar qc : text) {
        char16_t c = qc.unicode();
        if (c >= 0xC0 && c <= 0xFF && (fold & DiacriticFold)) {
            c = kLatin1Base[c - 0xC0];
        } else if (isCombiningMark(c) && (fold & DiacriticFold)) {
            continue;
        } else if (c >= 0x80 && !(c >= 0xC0 && c <= 0xFF)) {
            simple = false;
            break;
        }
        if (fold & CaseFold)
            c = c < 0x80 ? (c >= u'A' && c <= u'Z' ? char16_t(c + 32) : c) : QChar::toCaseFolded(c);
        *o++ = QChar(c);
    }
    if (simple) {
        out.truncate(o - out.constData());
        return out;
    }
    out = text;
    if (fold & DiacriticFold) {
        const QString decomposed = text.normalized(QString::NormalizationForm_D);
        out.clear();
        out.reserve(decomposed.size());
        for (QChar c : decomposed) {
            const QChar::Category category = c.category();
            if (category != QChar::Mark_NonSpacing && category != QChar::Mark_SpacingCombining
                && category != QChar::Mark_Enclosing)
                out += c;
        }
    }
    if (fold & CaseFold)
        out = out.toCaseFolded();
    return out;
}

namespace {

// Where run first occurs in text from an index on, or -1. Names and titles are short: a
// vectorised look for the first character, then a comparison, beats a general search.
qsizetype findRun(QStringView text, QStringView run, qsizetype from)
{
    const qsizetype n = run.size();
    const qsizetype last = text.size() - n;
    if (n == 0)
        return from <= text.size() ? from : -1;
    const char16_t *t = text.utf16();
    const char16_t *r = run.utf16();
    const QStringView heads = text.left(last + 1);
    for (qsizetype i = from; i <= last; ++i) {
        i = heads.indexOf(QChar(r[0]), i);
        if (i < 0)
            return -1;
        qsizetype k = 1;
        while (k < n && t[i + k] == r[k])
            ++k;
        if (k == n)
            return i;
    }
    return -1;
}

} // namespace

bool CVFilter::likeMatch(const Pattern &pattern, QStringView text)
{
    if (pattern.runsOnly) {
        const std::vector<QString> &runs = pattern.runs;
        if (pattern.pieces.empty())
            return text.isEmpty();
        if (runs.empty())
            return true; // stars only
        std::size_t first = 0, last = runs.size();
        qsizetype from = 0, end = text.size();
        if (pattern.anchoredStart) {
            if (!text.startsWith(runs.front()))
                return false;
            from = runs.front().size();
            first = 1;
        }
        if (pattern.anchoredEnd) {
            if (runs.size() == 1 && pattern.anchoredStart)
                return text.size() == runs.front().size();
            if (!text.endsWith(runs.back()))
                return false;
            end = text.size() - runs.back().size();
            last = runs.size() - 1;
            if (end < from)
                return false;
        }
        // Leftmost first: each run found earliest leaves the most room for the rest.
        const QStringView middle = text.left(end);
        for (std::size_t r = first; r < last; ++r) {
            const qsizetype at = findRun(middle, runs[r], from);
            if (at < 0)
                return false;
            from = at + runs[r].size();
        }
        return true;
    }
    using Piece = Pattern::Piece;
    const auto &pat = pattern.pieces;
    const std::size_t m = pat.size();
    const qsizetype n = text.size();
    // Wildcard matching with one remembered star: on a mismatch the last star takes one
    // more character. Linear for the patterns a search builds.
    std::size_t j = 0;
    qsizetype i = 0;
    std::size_t star = std::size_t(-1);
    qsizetype mark = 0;
    while (i < n) {
        if (j < m && pat[j].first == Piece::AnyOne) {
            i += text[i].isHighSurrogate() && i + 1 < n && text[i + 1].isLowSurrogate() ? 2 : 1;
            ++j;
        } else if (j < m && pat[j].first == Piece::Literal && pat[j].second == text[i]) {
            ++i;
            ++j;
        } else if (j < m && pat[j].first == Piece::AnyRun) {
            star = j++;
            mark = i;
        } else if (star != std::size_t(-1)) {
            j = star + 1;
            i = ++mark;
        } else {
            return false;
        }
    }
    while (j < m && pat[j].first == Piece::AnyRun)
        ++j;
    return j == m;
}
