#pragma once

#include "Library/CVAttribute.h"

#include <QString>
#include <QVariant>

#include <array>
#include <bitset>

// One file track of the player's library. Typed slots instead of a map of variants:
// a 100,000-track library has to load in well under a second and stay small.
// Every attribute can be absent; the display texts are derived when read.
class CVTrack {
public:
    bool has(CVAttr a) const
    {
        // Stored attributes are one bit test; this runs for every comparison and every sort.
        return a < CVAttr::Season ? m_present.test(std::size_t(a)) : hasDerived(a);
    }
    void clear(CVAttr a) { m_present.reset(std::size_t(a)); }

    QString text(CVAttr a) const; // texts, and the display texts; empty when absent
    qint64 integer(CVAttr a) const { return m_integers[std::size_t(CVAttribute::slot(a))]; }
    double real(CVAttr a) const { return m_reals[std::size_t(CVAttribute::slot(a))]; }
    qint64 date(CVAttr a) const { return m_dates[std::size_t(CVAttribute::slot(a))]; } // seconds since 1970 UTC
    bool flag(CVAttr a) const { return m_flags.test(std::size_t(CVAttribute::slot(a))); }

    // Texts are returned by reference on the hot paths (sorting, predicates).
    const QString &textRef(CVAttr a) const { return m_texts[std::size_t(CVAttribute::slot(a))]; }

    void setText(CVAttr a, const QString &v)
    {
        m_texts[std::size_t(CVAttribute::slot(a))] = v;
        mark(a);
    }
    void setInteger(CVAttr a, qint64 v)
    {
        m_integers[std::size_t(CVAttribute::slot(a))] = v;
        mark(a);
    }
    void setReal(CVAttr a, double v)
    {
        m_reals[std::size_t(CVAttribute::slot(a))] = v;
        mark(a);
    }
    void setDate(CVAttr a, qint64 secs)
    {
        m_dates[std::size_t(CVAttribute::slot(a))] = secs;
        mark(a);
    }
    void setFlag(CVAttr a, bool v)
    {
        m_flags.set(std::size_t(CVAttribute::slot(a)), v);
        mark(a);
    }

    // The value by the attribute's kind: QString, qint64, double, QDateTime or bool; invalid when absent.
    QVariant value(CVAttr a) const;
    // The value as shown: dates formatted, numbers as numbers.
    QString displayText(CVAttr a) const;

    // The track's number in one load, for tables kept beside the tracks: its place in the
    // artist-first order that selections mostly come in (see CVSelection).
    int index() const { return m_index; }
    void setIndex(int index) { m_index = index; }

    // SpanLocation when the file lies away from home, else Location.
    const QString &currentPath() const
    {
        return flag(CVAttr::ItemIsSpanned) ? textRef(CVAttr::SpanLocation) : textRef(CVAttr::Location);
    }

private:
    bool hasDerived(CVAttr a) const;
    void mark(CVAttr a) { m_present.set(std::size_t(a)); }

    std::array<QString, kCVTextSlots> m_texts;
    std::array<qint64, kCVIntegerSlots> m_integers {};
    std::array<double, kCVRealSlots> m_reals {};
    std::array<qint64, kCVDateSlots> m_dates {};
    std::bitset<4> m_flags;
    int m_index = -1;
    std::bitset<kCVAttrCount> m_present;
};
