#pragma once

#include <QString>

#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Shares one QString among all equal texts of a load (artists, albums, genres, kinds):
// a large library repeats them tens of thousands of times. An open-addressing table,
// since this lookup runs several times for every track.
class CVStringInterner {
public:
    // The stored UTF-8 bytes and the shared text, both alive as long as the interner, and a
    // slot for one text derived from it (the reader keeps the sort string there).
    struct Entry {
        std::string first;
        QString second;
        QString derived;
    };

    CVStringInterner() { m_slots.resize(1024); }

    Entry &entry(std::string_view utf8)
    {
        const std::uint64_t h = hash(utf8);
        std::size_t mask = m_slots.size() - 1;
        for (std::size_t i = std::size_t(h) & mask;; i = (i + 1) & mask) {
            Slot &slot = m_slots[i];
            if (!slot.entry) {
                m_entries.push_back({ std::string(utf8), QString::fromUtf8(utf8.data(), qsizetype(utf8.size())), {} });
                slot = { h, &m_entries.back() };
                if (m_entries.size() * 2 > m_slots.size())
                    grow();
                return m_entries.back();
            }
            if (slot.hash == h && equal(slot.entry->first, utf8))
                return *slot.entry;
        }
    }
    const QString &intern(std::string_view utf8) { return entry(utf8).second; }

    std::size_t size() const { return m_entries.size(); }
    std::deque<Entry> &entries() { return m_entries; }

private:
    struct Slot {
        std::uint64_t hash = 0;
        Entry *entry = nullptr;
    };

    // Short texts compare faster inline than through a call of memcmp.
    static bool equal(std::string_view a, std::string_view b)
    {
        if (a.size() != b.size())
            return false;
        std::size_t i = 0;
        for (; i + 8 <= a.size(); i += 8) {
            std::uint64_t x, y;
            std::memcpy(&x, a.data() + i, 8);
            std::memcpy(&y, b.data() + i, 8);
            if (x != y)
                return false;
        }
        for (; i < a.size(); ++i)
            if (a[i] != b[i])
                return false;
        return true;
    }

    // Eight bytes at a time: most texts are longer than a word, and this runs for every one.
    static std::uint64_t hash(std::string_view s)
    {
        std::uint64_t h = std::uint64_t(s.size()) * 0x9E3779B97F4A7C15ULL;
        std::size_t i = 0;
        for (; i + 8 <= s.size(); i += 8) {
            std::uint64_t w;
            std::memcpy(&w, s.data() + i, 8);
            h = (h ^ w) * 0xFF51AFD7ED558CCDULL;
            h ^= h >> 32;
        }
        if (i < s.size()) {
            std::uint64_t w = 0;
            std::memcpy(&w, s.data() + i, s.size() - i);
            h = (h ^ w) * 0xC4CEB9FE1A85EC53ULL;
        }
        h ^= h >> 33;
        h *= 0xFF51AFD7ED558CCDULL;
        return h ^ (h >> 29);
    }

    void grow()
    {
        std::vector<Slot> bigger(m_slots.size() * 2);
        const std::size_t mask = bigger.size() - 1;
        for (const Slot &slot : m_slots) {
            if (!slot.entry)
                continue;
            std::size_t i = std::size_t(slot.hash) & mask;
            while (bigger[i].entry)
                i = (i + 1) & mask;
            bigger[i] = slot;
        }
        m_slots = std::move(bigger);
    }

    std::deque<Entry> m_entries;
    std::vector<Slot> m_slots;
};
