#pragma once

#include "Library/CVFilter.h"
#include "Library/CVPredicate.h"
#include "Library/CVTrackList.h"

#include <QHash>
#include <QList>
#include <QStringList>
#include <QVariantMap>

#include <map>
#include <memory>
#include <vector>

class CVSelectionPanes;
class CVSettings;
class CVTrack;

// A browser column: parallel lists of keys (what selecting a row selects) and row texts.
struct CVBrowserList {
    QStringList keys;
    QStringList rows;
};

// Every selection of tracks that the window shows: predicates applied one after another as
// a stack, each intermediate list kept in a memo (libraryCache) under its source, so that a
// redraw costs look-ups. Also the browser lists and the summaries. One per loaded library.
class CVSelection {
public:
    explicit CVSelection(CVSettings *settings);
    ~CVSelection();

    // A new library: the memo, the sort orders and the folded texts start again.
    void reset(std::vector<CVTrack *> allTracks);
    void setPanes(const CVSelectionPanes *panes) { m_panes = panes; }
    void setSearchString(const QString &text) { m_searchString = text; }
    const QString &searchString() const { return m_searchString; }
    void clearMemoization();

    const CVTrackList &allTracks() const { return m_all; }

    QString getSearchPredicate() const;
    QList<CVPredicate> getPredicateStack(const CVPredicate &predicate) const;
    CVTrackList selectPredicateStack(const QList<CVPredicate> &stack);
    // A null source means all tracks.
    CVTrackList selectPredicate(const CVPredicate &predicate, const CVTrackList &source = {});
    CVTrackList smartSelectPredicate(const CVPredicate &predicate);

    CVBrowserList getBrowserListForField(
        const QString &field, const QString &column, const QString &sortField, const CVTrackList &source = {});
    QVariantMap getSummaryAttibutesForTracks(const CVTrackList &tracks);
    QVariantMap getSummaryAttibutesForPredicate(const CVPredicate &predicate);
    QVariantMap getSummaryLinesForPredicate(const CVPredicate &predicate, const QString &alternateTitle);

    // Text safe to put between single quotes of a filter text.
    static QString makeSafe(const QString &value);
    static QString makeSafe(qint64 value) { return QString::number(value); }
    // The span filter menu's predicate for a menu title that contains a filter name.
    static QString predicateForSpanFilter(const QString &title);
    static QString stackKey(const QList<CVPredicate> &stack);

    // Memo entries of other kinds ("Locations", "Playlists", ...), keyed by kind and stack.
    std::shared_ptr<const void> memo(const QString &key) const { return m_kindMemo.value(key); }
    void setMemo(const QString &key, std::shared_ptr<const void> value, quint64 generation);
    quint64 generation() const { return m_generation; }

    // Works out ahead, once per load, what the first selections would otherwise pay for: the
    // texts a search looks at, folded, and the two orders selections come out in.
    void prepareSearch();
    // The same for the first browser lists and media counts, in one walk over the tracks.
    void prepareLists();

    // Tests one track against a filter text (used for records the memo does not cover).
    bool trackMatches(const CVFilter &filter, const CVTrack &track);

private:
    using Order = CVTrackOrder;

    // The distinct texts of some text attributes and each track's one among them (-1 when it
    // has none): sorting, grouping and filtering by a text then look at numbers. Sorted: the
    // numbers follow plain text order of the texts (worked out only when asked for).
    struct TextValues {
        std::vector<QString> texts;
        std::vector<std::vector<int>> byTrack; // per attribute asked for, by track index
        bool sorted = false;
        // Folded texts by number, per fold, made when a comparison first needs them.
        std::vector<QString> folded[4];
        std::vector<quint8> foldedDone[4];
    };

    CVTrackList makeList(std::vector<CVTrack *> tracks, std::vector<int> indices, Order order);
    // Numbers the tracks in artist-first order (a new load).
    void numberTracks();
    static QString predicateWithText(const QString &predicate, const QString &from, const QString &to);
    void sortTracks(std::vector<CVTrack *> &tracks, std::vector<int> &indices, Order order);
    // By index: the place in album-first order (in artist-first order a track's index is its place).
    const std::vector<int> &albumFirstRanks();
    // All tracks in an order, for selections from all tracks that come out sorted.
    const CVTrackList &inOrder(Order order);
    const TextValues &textValues(const std::vector<CVAttr> &attributes, bool sorted);
    // Numbers the texts of every attribute set not numbered yet.
    void makeTextValues(const std::vector<std::vector<CVAttr>> &sets);
    const TextValues *textValuesIfMade(CVAttr attribute) const;
    static const QString &foldedValue(TextValues &values, int value, quint8 fold);
    const QString &foldedText(CVAttr attr, quint8 fold, const CVTrack &track, const QString &text);
    // The candidates that match, in their order.
    void filterTracks(const CVFilter &filter, const CVTrackListData &candidates, std::vector<CVTrack *> &out,
        std::vector<int> &outIndices);
    bool browserListByRanks(CVAttr display, CVAttr sort, bool artist, bool group, bool albumArtists,
        const CVTrackListData &tracks, QStringList &keys, QStringList &rows, bool &compilationSeen);
    const std::vector<quint8> &compilations();

    CVSettings *m_settings;
    const CVSelectionPanes *m_panes = nullptr;
    QString m_searchString;
    CVTrackList m_all;
    quint64 m_nextListID = 1;
    quint64 m_generation = 0;

    // libraryCache: per source list, per predicate; per stack; browser lists; summaries.
    QHash<quint64, QHash<QString, CVTrackList>> m_selections;
    QHash<QString, CVTrackList> m_stacks;
    QHash<quint64, QHash<QString, CVBrowserList>> m_browserLists;
    QHash<QString, QVariantMap> m_summaryAttributes;
    QHash<QString, QVariantMap> m_summaryLines;
    QHash<QString, std::shared_ptr<const void>> m_kindMemo;

    // The search text's filter text, made again only when the text or the fields change.
    mutable QString m_searchPredicateText;
    mutable QStringList m_searchPredicateFields;
    mutable QString m_searchPredicate;

    // Kept for the whole load: the two sort orders, the numbered texts, and folded texts per
    // attribute.
    std::vector<int> m_albumFirstRanks;
    CVTrackList m_inOrder[2];
    std::vector<quint8> m_compilations; // by index
    std::map<std::vector<CVAttr>, std::unique_ptr<TextValues>> m_textValues;
    // By attribute and fold (attribute * 4 + fold): an index, as this is asked per track and clause.
    std::vector<std::vector<QString>> m_folded = std::vector<std::vector<QString>>(kCVAttrCount * 4);
    std::vector<std::vector<quint8>> m_foldedDone = std::vector<std::vector<quint8>>(kCVAttrCount * 4);
    QString m_scratch;
};
