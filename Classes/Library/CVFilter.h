#pragma once

#include "Library/CVAttribute.h"

#include <QString>

#include <memory>
#include <optional>
#include <vector>

// A value of a record's attribute as the filter sees it: absent, a text or a number
// (booleans are 1 and 0).
struct CVFilterValue {
    enum class Kind : quint8 { Absent, Text, Number };

    static CVFilterValue absent() { return {}; }
    static CVFilterValue ofText(const QString *text) { return { Kind::Text, 0, text }; }
    static CVFilterValue ofNumber(double number) { return { Kind::Number, number, nullptr }; }

    Kind kind = Kind::Absent;
    double number = 0;
    const QString *text = nullptr; // valid while the record is being tested
};

// A compiled filter text of the store's query language: comparisons with ==, !=,
// LIKE[cd], BEGINSWITH[c] against quoted texts, integers and NULL, joined by AND (&&),
// OR (||) and parentheses; back-to-back clauses (A)(B) mean (A) AND (B).
//
// Quoted values are read twice: inside the quotes \\, \' and \" stand for a backslash and
// the quote; after that a backslash makes the next character literal in every comparison
// (and keeps * and ? from being wildcards in LIKE). makeSafe() writes exactly that form.
class CVFilter {
public:
    enum Fold : quint8 { NoFold = 0, CaseFold = 1, DiacriticFold = 2 };

    struct Pattern {
        enum class Piece : quint8 { Literal, AnyRun, AnyOne };
        std::vector<std::pair<Piece, QChar>> pieces; // one character a literal piece, already folded
        // Patterns without "?": the literal runs between the stars, and whether the text must
        // begin or end with the first or last run.
        bool runsOnly = false;
        bool anchoredStart = false;
        bool anchoredEnd = false;
        std::vector<QString> runs;
    };

    struct Leaf {
        enum class Op : quint8 { Equal, NotEqual, Like, BeginsWith };
        QString attribute;
        std::optional<CVAttr> trackAttribute; // resolved once for track records
        Op op = Op::Equal;
        quint8 fold = NoFold;
        CVFilterValue::Kind valueKind = CVFilterValue::Kind::Absent; // Absent: NULL
        QString text; // the value with every escape resolved, folded when the comparison folds
        double number = 0;
        Pattern pattern; // LIKE
    };

    // The compiled form of a text, parsed once and kept. A text that does not parse is a
    // programming error: it asserts in debug builds and otherwise selects nothing.
    static std::shared_ptr<const CVFilter> compile(const QString &text);
    // Parses without the cache; nothing and a message when the text is not a filter.
    static std::shared_ptr<const CVFilter> parse(const QString &text, QString *error = nullptr);

    // Tests one record. get(leaf) returns the record's CVFilterValue for leaf.attribute;
    // folded(leaf, value) returns the folded text of a text value (a record type may cache it).
    template<typename Get, typename Folded>
    bool matches(const Get &get, const Folded &folded) const
    {
        return matchesLeaves([&](int, const Leaf &leaf) { return matchLeaf(leaf, get(leaf), folded); });
    }
    template<typename Get>
    bool matches(const Get &get) const
    {
        return matches(get, [](const Leaf &leaf, const CVFilterValue &v) { return foldText(*v.text, leaf.fold); });
    }
    // Tests one record a leaf at a time: test(leafIndex, leaf) answers a comparison, so that a
    // caller can answer repeated values from what it has seen.
    template<typename LeafTest>
    bool matchesLeaves(const LeafTest &test) const
    {
        return m_valid && matchNode(0, test);
    }

    // One comparison of a record's value.
    template<typename Folded>
    static bool matchLeaf(const Leaf &leaf, const CVFilterValue &v, const Folded &folded)
    {
        using K = CVFilterValue::Kind;
        if (v.kind == K::Absent) {
            // A missing attribute is NULL: it equals NULL and differs from every value.
            if (leaf.op == Leaf::Op::Equal)
                return leaf.valueKind == K::Absent;
            if (leaf.op == Leaf::Op::NotEqual)
                return leaf.valueKind != K::Absent;
            return false;
        }
        switch (leaf.op) {
        case Leaf::Op::Equal:
        case Leaf::Op::NotEqual: {
            bool equal = false;
            if (leaf.valueKind == K::Number && v.kind == K::Number)
                equal = v.number == leaf.number;
            else if (leaf.valueKind == K::Text && v.kind == K::Text)
                equal = leaf.fold ? folded(leaf, v) == leaf.text : *v.text == leaf.text;
            return (leaf.op == Leaf::Op::Equal) == equal;
        }
        case Leaf::Op::BeginsWith:
            if (v.kind != K::Text || leaf.valueKind != K::Text)
                return false;
            return leaf.fold ? folded(leaf, v).startsWith(leaf.text) : v.text->startsWith(leaf.text);
        case Leaf::Op::Like:
            if (v.kind != K::Text || leaf.valueKind != K::Text)
                return false;
            return likeMatch(leaf.pattern, leaf.fold ? QStringView(folded(leaf, v)) : QStringView(*v.text));
        }
        return false;
    }

    bool isValid() const { return m_valid; }
    const std::vector<Leaf> &leaves() const { return m_leaves; }
    // The one comparison a filter of a single clause is, or none.
    const Leaf *singleLeaf() const
    {
        return m_valid && m_nodes[0].kind == Node::Kind::Leaf ? &m_leaves[std::size_t(m_nodes[0].leaf)] : nullptr;
    }

    // Case folding ([c]) and removal of combining marks after canonical decomposition ([d]).
    static QString foldText(const QString &text, quint8 fold);
    static bool likeMatch(const Pattern &pattern, QStringView text);

private:
    // And and Or hold all their operands, so a long chain of clauses (the drive's top
    // folders joined with OR) is a loop, not a deep recursion.
    struct Node {
        enum class Kind : quint8 { And, Or, Leaf, False };
        Kind kind = Kind::False;
        int leaf = -1; // Leaf: index into m_leaves
        std::vector<int> children; // And, Or
    };

    friend class CVFilterParser;

    template<typename LeafTest>
    bool matchNode(int index, const LeafTest &test) const
    {
        const Node &node = m_nodes[std::size_t(index)];
        switch (node.kind) {
        case Node::Kind::And:
            for (int child : node.children)
                if (!matchNode(child, test))
                    return false;
            return true;
        case Node::Kind::Or:
            for (int child : node.children)
                if (matchNode(child, test))
                    return true;
            return false;
        case Node::Kind::Leaf:
            return test(node.leaf, m_leaves[std::size_t(node.leaf)]);
        case Node::Kind::False:
            return false;
        }
        return false;
    }

    std::vector<Node> m_nodes; // m_nodes[0] is the root
    std::vector<Leaf> m_leaves;
    bool m_valid = false;
};
