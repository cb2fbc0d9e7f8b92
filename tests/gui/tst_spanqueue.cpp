// The spanning queue alone, over a generated library and without a window: adding and removing,
// what it saves, its predicates and its summary line.
#include "CVLibraryGenerator.h"
#include "CVPartTest.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVSelectionPanes.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVSpanQueue.h"
#include "Platform/CVSettings.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestSpanQueue : public QObject, private CVPartTest {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        setUpParts(Model::None);
        m_library->setPanes(&m_panes);
        const QString file = m_env->filePath(u"library.xml"_s);
        CVLibraryGeneratorOptions options;
        options.tracks = 300;
        options.seed = 11;
        QVERIFY(CVLibraryGenerator(options).write(file));
        m_library->setLibraryFilePath(file);
        QCOMPARE(m_library->loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        m_queue = std::make_unique<CVSpanQueue>(m_library.get(), m_settings);
    }
    void cleanup()
    {
        m_queue.reset();
        tearDownParts();
    }

    void addingAndRemovingChangesOnlyWhatChanges()
    {
        QSignalSpy changed(m_queue.get(), &CVSpanQueue::changed);
        const CVPredicate movies = CVPredicate::fromText(u"( MediaType == 'Movies' )"_s);
        const qsizetype count = qsizetype(m_library->selectPredicate(movies)->tracks.size());
        QVERIFY(count > 0);
        QVERIFY(m_queue->addOrRemove(movies, false));
        QCOMPARE(m_queue->count(), count);
        // Queued again: nothing changes and nothing is announced (or saved) again.
        QVERIFY(!m_queue->addOrRemove(movies, false));
        // Removing what is not queued is no change either.
        QVERIFY(!m_queue->addOrRemove(CVPredicate::fromText(u"( MediaType == 'Books' )"_s), true));
        QCOMPARE(changed.count(), 1);
        QVERIFY(m_queue->addOrRemove(movies, true));
        QVERIFY(m_queue->isEmpty());
        QCOMPARE(changed.count(), 2);
    }

    void theWindowsNarrowingDecidesWhatADropQueues()
    {
        // A drop queues what the window shows: the panes' predicates apply.
        m_panes.mediaType = CVPredicate::fromText(u"( MediaType == 'Music' )"_s);
        QVERIFY(m_queue->addOrRemove(CVPredicate::fromText(u""_s), false));
        for (const CVTrack *t : m_queue->tracks())
            QCOMPARE(t->text(CVAttr::MediaType), u"Music"_s);
        // A bulk selection takes the whole library whatever the panes show.
        m_queue->fill(CVPredicate::fromText(u""_s), true);
        QCOMPARE(std::size_t(m_queue->count()), m_library->allTracks().size());
    }

    void savesItsPredicateWhenAutosaveIsOn()
    {
        m_settings->setValue(CVSettingsKey::AutosaveSpanningQueue, true);
        m_queue->fill(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s), false);
        const auto saved = CVPredicateArchive::unarchive(m_settings->dataValue(CVSettingsKey::SavedSpanningQueue));
        QVERIFY(saved);
        QCOMPARE(*saved, m_queue->predicate());
        QCOMPARE(saved->persistentIDs().size(), m_queue->count());
        m_settings->setValue(CVSettingsKey::AutosaveSpanningQueue, false);
        m_settings->remove(CVSettingsKey::SavedSpanningQueue);
        m_queue->clear();
        QVERIFY(!m_settings->contains(CVSettingsKey::SavedSpanningQueue));
        QCOMPARE(m_queue->predicate(), CVPredicate::fromText(u"EMPTY"_s));
    }

    void predicatesByFieldFollowTheQueue()
    {
        QCOMPARE(m_queue->predicateForField(u"TrackID"_s), CVPredicate::fromText(u"EMPTY"_s));
        m_queue->fill(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s), false);
        const CVPredicate ids = m_queue->predicateForField(u"TrackID"_s);
        QCOMPARE(std::size_t(m_queue->count()), ids.trackIDs().size());
        QVERIFY(std::is_sorted(ids.trackIDs().cbegin(), ids.trackIDs().cend()));
        const CVPredicate pids = m_queue->predicateForField(u"PersistentID"_s);
        QVERIFY(std::is_sorted(pids.persistentIDs().cbegin(), pids.persistentIDs().cend()));
        QCOMPARE(m_queue->predicateForField(u"Name"_s), CVPredicate::fromText(u"EMPTY"_s));
        // A changed queue is never answered from the predicates of the one before.
        m_queue->fill(CVPredicate::fromText(u"( MediaType == 'Books' )"_s), false);
        QVERIFY(m_queue->predicateForField(u"TrackID"_s).trackIDs().size() > ids.trackIDs().size());
        // Forgotten for a reload: empty, and nothing saved.
        m_queue->forget();
        QCOMPARE(m_queue->predicateForField(u"TrackID"_s), CVPredicate::fromText(u"EMPTY"_s));
    }

    void summaryKeepsTheLastSizeWhenEmptied()
    {
        QCOMPARE(m_queue->summary(true), u"No Media Selected"_s);
        m_queue->fill(CVPredicate::forTrackIDs({ m_library->allTracks().front()->integer(CVAttr::TrackID) }), false);
        QCOMPARE(m_queue->count(), 1);
        QVERIFY(m_queue->summary(true).startsWith(u"1 item, "_s));
        QVERIFY(m_queue->summary(false).contains(u" total time, "_s));
        const double size = m_queue->size();
        QCOMPARE(size, m_library->allTracks().front()->real(CVAttr::Size));
        m_queue->clear();
        QCOMPARE(m_queue->summary(true), u"No Media Selected"_s);
        QCOMPARE(m_queue->size(), size);
    }

private:
    CVFixedSelectionPanes m_panes;
    std::unique_ptr<CVSpanQueue> m_queue;
};

QTEST_GUILESS_MAIN(TestSpanQueue)
#include "tst_spanqueue.moc"
