#pragma once

#include <QString>

#include <cstddef>
#include <vector>

// One shared text for another, found by the address of the characters: texts interned apart
// are swapped for equal ones of another interner without comparing any text.
class CVSharedTexts {
public:
    explicit CVSharedTexts(std::size_t count)
    {
        std::size_t n = 64;
        while (n < count * 2)
            n *= 2;
        m_slots.resize(n);
    }
    void insert(const QString &from, const QString &to)
    {
        if (from.isEmpty() || from.constData() == to.constData())
            return;
        for (std::size_t i = slotOf(from.constData());; i = (i + 1) & (m_slots.size() - 1)) {
            if (!m_slots[i].key) {
                m_slots[i] = { from.constData(), from.size(), &to };
                return;
            }
            if (m_slots[i].key == from.constData())
                return;
        }
    }
    const QString *find(const QString &text) const
    {
        if (text.isEmpty())
            return nullptr;
        for (std::size_t i = slotOf(text.constData());; i = (i + 1) & (m_slots.size() - 1)) {
            const Slot &slot = m_slots[i];
            if (!slot.key)
                return nullptr;
            if (slot.key == text.constData() && slot.size == text.size())
                return slot.to;
        }
    }

private:
    struct Slot {
        const QChar *key = nullptr;
        qsizetype size = 0;
        const QString *to = nullptr;
    };
    std::size_t slotOf(const QChar *p) const
    {
        return std::size_t((quint64(quintptr(p)) * 0x9E3779B97F4A7C15ULL) >> 32) & (m_slots.size() - 1);
    }
    std::vector<Slot> m_slots;
};
