// The selection model alone, without a window: who refreshes in which order, what a change made
// during a refresh becomes, and the predicate stack it serves.
#include "Browsing/CVSelectionModel.h"
#include "CVPartTest.h"
#include "Library/CVLibraryManager.h"
#include "Platform/CVSettings.h"

#include <QtTest>

#include <functional>

using namespace Qt::StringLiterals;
using Pane = CVSelectionModel::Pane;

namespace {

QString name(Pane pane)
{
    return QString::fromLatin1(QMetaEnum::fromType<Pane>().valueToKey(int(pane)));
}

QStringList names(const QList<Pane> &panes)
{
    QStringList out;
    for (Pane p : panes)
        out.append(name(p));
    return out;
}

QString stackText(const QList<CVPredicate> &stack)
{
    QStringList out;
    for (const CVPredicate &p : stack)
        out.append(p.kind() == CVPredicate::Kind::Text ? p.text() : u"<dict>"_s);
    return out.join(u" | "_s);
}

} // namespace

class TestSelectionModel : public QObject, private CVPartTest {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        setUpParts(Model::Selection);
        m_live = true;
        m_model->setLiveCheck([this] { return m_live; });
        m_heard.clear();
        m_onHeard = nullptr;
        connect(m_model.get(), &CVSelectionModel::changed, this, [this](Pane origin, Pane listener) {
            m_heard.append(name(origin) + u'>' + name(listener));
            if (m_onHeard)
                m_onHeard(origin, listener);
        });
    }
    void cleanup() { tearDownParts(); }

    void everyNarrowingRefreshesTheBrowserFirstAndThePathBarLast_data()
    {
        QTest::addColumn<Pane>("origin");
        QTest::addColumn<QStringList>("order");
        const QStringList rest { u"Playlists"_s, u"Locations"_s, u"FilterPathBar"_s };
        QTest::newRow("search") << Pane::Search
                                << QStringList { u"Browser"_s, u"SpanFilter"_s, u"MediaFilter"_s } + rest;
        // A filter's own button follows the model first (a cleared filter is shown cleared).
        QTest::newRow("span filter") << Pane::SpanFilter
                                     << QStringList { u"SpanFilter"_s, u"Browser"_s, u"MediaFilter"_s } + rest;
        QTest::newRow("media") << Pane::MediaFilter
                               << QStringList { u"MediaFilter"_s, u"Browser"_s, u"SpanFilter"_s } + rest;
        QTest::newRow("playlist") << Pane::Playlists
                                  << QStringList { u"Playlists"_s, u"Browser"_s, u"SpanFilter"_s, u"MediaFilter"_s,
                                         u"Locations"_s, u"FilterPathBar"_s };
        QTest::newRow("location") << Pane::Locations
                                  << QStringList { u"Locations"_s, u"Browser"_s, u"SpanFilter"_s, u"MediaFilter"_s,
                                         u"Playlists"_s, u"FilterPathBar"_s };
        QTest::newRow("browse queue") << Pane::Queue
                                      << QStringList { u"Browser"_s, u"SpanFilter"_s, u"MediaFilter"_s } + rest
                + QStringList { u"WalkThrough"_s };
        // A column narrows only the columns to its right and the track list.
        QTest::newRow("genre") << Pane::Genre << QStringList { u"Browser"_s };
        QTest::newRow("album") << Pane::Album << QStringList { u"Browser"_s };
        QTest::newRow("listing") << Pane::Browser << QStringList { u"Browser"_s, u"FilterPathBar"_s };
    }
    void everyNarrowingRefreshesTheBrowserFirstAndThePathBarLast()
    {
        QFETCH(Pane, origin);
        QFETCH(QStringList, order);
        QCOMPARE(names(CVSelectionModel::refreshOrder(origin, false)), order);
        // No pane refreshes twice for one change, and none is its own listener by accident.
        QCOMPARE(QSet<QString>(order.cbegin(), order.cend()).size(), order.size());
    }

    void aChangedQueueNarrowsThePanesOnlyWhileBrowsed()
    {
        QCOMPARE(names(CVSelectionModel::refreshOrder(Pane::QueueContents, false)),
            (QStringList { u"FilterPathBar"_s, u"WalkThrough"_s }));
        QCOMPARE(CVSelectionModel::refreshOrder(Pane::QueueContents, true),
            CVSelectionModel::refreshOrder(Pane::Queue, true));
    }

    void eachChangeIsAnnouncedOnceWithItsOrigin()
    {
        m_model->setMedia(u"Movies"_s);
        QCOMPARE(m_heard.size(), CVSelectionModel::refreshOrder(Pane::MediaFilter, false).size());
        for (const QString &h : std::as_const(m_heard))
            QVERIFY2(h.startsWith(u"MediaFilter>"_s), qPrintable(h));
        m_heard.clear();
        // The same value again, and "All" spelt either way, are no change.
        m_model->setMedia(u"Movies"_s);
        QVERIFY(m_heard.isEmpty());
        m_model->setMedia(u"All"_s);
        QCOMPARE(m_model->media(), u"."_s);
        m_heard.clear();
        m_model->setMedia(u"."_s);
        QVERIFY(m_heard.isEmpty());
        // A reload of the same playlist (a new predicate for the same ID) is no change either.
        m_model->setPlaylist(u"ABC"_s, u"Mix"_s, CVPredicate::forTrackIDs({ 1 }));
        m_heard.clear();
        m_model->setPlaylist(u"ABC"_s, u"Mix (2)"_s, CVPredicate::forTrackIDs({ 1, 2 }));
        QVERIFY(m_heard.isEmpty());
        QCOMPARE(m_model->playlistName(), u"Mix (2)"_s);
        QCOMPARE(m_model->getPlaylistPredicate().trackIDs().size(), std::size_t(2));
    }

    void nothingIsAnnouncedBeforeThePanesAreOnScreen()
    {
        m_live = false;
        m_model->setSpanFilter(u"Not Spanned"_s);
        m_model->setSearchText(u"abc"_s);
        m_model->setBrowsingQueue(true);
        QVERIFY(m_heard.isEmpty());
        // The values are kept all the same: the load fills the panes from them.
        QCOMPARE(m_model->spanFilter(), u"Not Spanned"_s);
        QCOMPARE(m_model->searchText(), u"abc"_s);
        QVERIFY(m_model->isBrowsingQueue());
    }

    void aChangeMadeWhileThePanesRefreshComesAfterThem()
    {
        // The span filter falls back to "All Tracks" while it counts for a search, and the
        // playlist it showed is gone: both changes follow the search's, once each.
        m_model->setSpanFilter(u"All Spanned"_s);
        m_model->setPlaylist(u"ABC"_s, u"Mix"_s, CVPredicate::forTrackIDs({ 1 }));
        m_heard.clear();
        m_onHeard = [this](Pane origin, Pane listener) {
            if (origin != Pane::Search)
                return;
            if (listener == Pane::SpanFilter) {
                m_model->setSpanFilter(u"All Tracks"_s);
                m_model->setSpanFilter(u"All Tracks"_s);
            }
            if (listener == Pane::Playlists)
                m_model->setPlaylist({}, {}, CVPredicate::fromText({}));
            // The state is the new one at once: later listeners of this change count with it.
            if (listener == Pane::Locations) {
                QCOMPARE(m_model->spanFilter(), u"All Tracks"_s);
                QVERIFY(!m_model->hasPlaylist());
            }
        };
        m_model->setSearchText(u"x"_s);
        QStringList expected;
        for (Pane origin : { Pane::Search, Pane::SpanFilter, Pane::Playlists })
            for (Pane listener : CVSelectionModel::refreshOrder(origin, false))
                expected.append(name(origin) + u'>' + name(listener));
        QCOMPARE(m_heard, expected);
    }

    void aPendingChangeIsDroppedByAReload()
    {
        m_onHeard = [this](Pane origin, Pane listener) {
            if (origin == Pane::Search && listener == Pane::Browser) {
                m_model->setLocation(u"/m/"_s, u"m"_s);
                m_model->clearForReload();
            }
        };
        m_model->setSearchText(u"x"_s);
        for (const QString &h : std::as_const(m_heard))
            QVERIFY2(h.startsWith(u"Search>"_s), qPrintable(h));
        QVERIFY(!m_model->hasLocation());
    }

    void servesThePredicateStack()
    {
        m_model->setSpanFilter(u"Not Spanned"_s);
        m_model->setMedia(u"Books"_s);
        const CVPredicate queue = CVPredicate::fromText(u"( TrackID == 7 )"_s);
        m_model->setQueuePredicate(queue);
        const CVPredicate own = CVPredicate::fromText(u"( Name == 'x' )"_s);
        const QString span = CVSelection::predicateForSpanFilter(u"Not Spanned"_s);
        QVERIFY(!span.isEmpty());
        // The queue narrows only while it is browsed; no playlist and no location narrow nothing.
        QCOMPARE(stackText(m_library->getPredicateStack(own)),
            QStringList({ u""_s, span, u""_s, u"( MediaType == 'Books' )"_s, u""_s, u""_s, own.text() })
                .join(u" | "_s));
        m_model->setBrowsingQueue(true);
        m_model->setPlaylist(u"ABC"_s, u"Mix"_s, CVPredicate::fromText(u"( TrackID == 9 )"_s));
        QCOMPARE(stackText(m_library->getPredicateStack(own)),
            QStringList(
                { u""_s, span, u""_s, u"( MediaType == 'Books' )"_s, queue.text(), u"( TrackID == 9 )"_s, own.text() })
                .join(u" | "_s));
        m_model->setMedia(u"All"_s);
        m_model->setPlaylist({}, {}, CVPredicate::fromText(u"( TrackID == 9 )"_s));
        m_model->setBrowsingQueue(false);
        QCOMPARE(stackText(m_library->getPredicateStack(own)),
            QStringList({ u""_s, span, u""_s, u""_s, u""_s, u""_s, own.text() }).join(u" | "_s));
    }

private:
    bool m_live = true;
    QStringList m_heard;
    std::function<void(Pane, Pane)> m_onHeard;
};

QTEST_GUILESS_MAIN(TestSelectionModel)
#include "tst_selectionmodel.moc"
