#pragma once

#include "Library/CVTrack.h"

#include <cstddef>
#include <deque>
#include <iterator>
#include <vector>

// The tracks of one read, in file order, each at a fixed address. Runs read apart (one per
// reading thread) are joined without moving a track: a move of 50,000 tracks costs more
// than reading them on a second core gains.
class CVTrackStore {
public:
    template<typename Track, typename Runs>
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = CVTrack;
        using difference_type = std::ptrdiff_t;
        using pointer = Track *;
        using reference = Track &;

        Iterator() = default;
        Iterator(Runs *runs, std::size_t run, std::size_t at)
            : m_runs(runs)
            , m_run(run)
            , m_at(at)
        {
            skipEmpty();
        }
        reference operator*() const { return (*m_runs)[m_run][m_at]; }
        pointer operator->() const { return &**this; }
        Iterator &operator++()
        {
            ++m_at;
            skipEmpty();
            return *this;
        }
        Iterator operator++(int)
        {
            Iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const Iterator &o) const { return m_run == o.m_run && m_at == o.m_at; }

    private:
        void skipEmpty()
        {
            while (m_run + 1 < m_runs->size() && m_at == (*m_runs)[m_run].size()) {
                ++m_run;
                m_at = 0;
            }
        }
        Runs *m_runs = nullptr;
        std::size_t m_run = 0;
        std::size_t m_at = 0;
    };
    using iterator = Iterator<CVTrack, std::vector<std::deque<CVTrack>>>;
    using const_iterator = Iterator<const CVTrack, const std::vector<std::deque<CVTrack>>>;

    CVTrackStore()
        : m_runs(1)
    {
    }

    CVTrack &emplace_back() { return m_runs.back().emplace_back(); }
    void pop_back() { m_runs.back().pop_back(); }
    CVTrack &back() { return m_runs.back().back(); }

    std::size_t size() const
    {
        std::size_t n = 0;
        for (const auto &run : m_runs)
            n += run.size();
        return n;
    }
    bool empty() const { return size() == 0; }
    CVTrack &operator[](std::size_t i) { return const_cast<CVTrack &>(std::as_const(*this)[i]); }
    const CVTrack &operator[](std::size_t i) const
    {
        for (const auto &run : m_runs) {
            if (i < run.size())
                return run[i];
            i -= run.size();
        }
        return m_runs.back().back();
    }

    // Takes the other store's tracks after this one's; no track moves.
    void append(CVTrackStore &&other)
    {
        for (auto &run : other.m_runs)
            if (!run.empty())
                m_runs.push_back(std::move(run));
        other.m_runs.assign(1, {});
        // New tracks go after the appended ones.
        if (!m_runs.back().empty())
            m_runs.emplace_back();
    }

    iterator begin() { return { &m_runs, 0, 0 }; }
    iterator end() { return { &m_runs, m_runs.size() - 1, m_runs.back().size() }; }
    const_iterator begin() const { return { &m_runs, 0, 0 }; }
    const_iterator end() const { return { &m_runs, m_runs.size() - 1, m_runs.back().size() }; }

private:
    std::vector<std::deque<CVTrack>> m_runs;
};
