// The walk-through line over a selection model and a drop zone, without the window: which step
// wins when several apply, and the texts the line knows only once they are set. The line in the
// whole window, through every state, is in tst_queue.
#include "Browsing/CVSelectionModel.h"
#include "CVPartTest.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVWalkThrough.h"
#include "Platform/CVSettings.h"
#include "Views/CVSpanQueueDropZone.h"

#include <QtTest>

using namespace Qt::StringLiterals;

class TestWalkThrough : public QObject, private CVPartTest {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        setUpParts(Model::Selection);
        m_model->setLiveCheck([] { return true; });
        m_restore = m_location = false;
        m_queueEmpty = true;
        m_zone = std::make_unique<CVSpanQueueDropZone>();
        m_line = std::make_unique<CVWalkThrough>(m_model.get(), m_zone.get(),
            CVWalkThrough::Context {
                [this] { return m_restore; }, [this] { return m_location; }, [this] { return m_queueEmpty; } });
        const QHash<QString, QString> all = texts();
        for (auto it = all.cbegin(); it != all.cend(); ++it)
            m_line->setWalkThroughTextTo(it.value(), it.key());
    }
    void cleanup()
    {
        m_line.reset();
        m_zone.reset();
        tearDownParts();
    }

    void theFirstStepThatAppliesWins_data()
    {
        QTest::addColumn<bool>("restore");
        QTest::addColumn<bool>("location");
        QTest::addColumn<bool>("queued");
        QTest::addColumn<bool>("browsing");
        QTest::addColumn<QString>("step");
        QTest::newRow("empty, span mode") << false << true << false << false << u"DragTracksSpan"_s;
        QTest::newRow("empty, restore mode") << true << false << false << false << u"DragTracksRestore"_s;
        QTest::newRow("queued, no location") << false << false << true << false << u"ChooseLocation"_s;
        QTest::newRow("queued, location") << false << true << true << false << u"ReadyToSpan"_s;
        // Restoring needs no location, and wins over one that is set.
        QTest::newRow("queued, restore mode") << true << true << true << false << u"ReadyToRestore"_s;
        QTest::newRow("browsing the queue") << true << true << true << true << u"BrowseSpanQueue"_s;
    }
    void theFirstStepThatAppliesWins()
    {
        QFETCH(bool, restore);
        QFETCH(bool, location);
        QFETCH(bool, queued);
        QFETCH(bool, browsing);
        QFETCH(QString, step);
        m_restore = restore;
        m_location = location;
        m_queueEmpty = !queued;
        m_model->setBrowsingQueue(browsing);
        m_line->setWalkThroughTextToProperStep();
        QCOMPARE(m_line->walkThroughText(), texts().value(step));
    }

    void theModelsAnnouncementsMoveTheLine()
    {
        QCOMPARE(m_line->walkThroughText(), texts().value(u"DragTracksSpan"_s));
        m_queueEmpty = false;
        m_model->queueContentsChanged();
        QCOMPARE(m_line->walkThroughText(), texts().value(u"ChooseLocation"_s));
    }

    void overTheZoneTheLineSaysWhatAClickDoesButNotDuringADrag()
    {
        m_queueEmpty = false;
        m_line->setIsMouseOverSpanQueueDropZone(true);
        QCOMPARE(m_line->walkThroughText(), u"Click to Browse Spanning Queue"_s);
        Q_EMIT m_zone->dragActiveChanged(true);
        QCOMPARE(m_line->walkThroughText(), texts().value(u"ChooseLocation"_s));
        Q_EMIT m_zone->dragActiveChanged(false);
        QCOMPARE(m_line->walkThroughText(), u"Click to Browse Spanning Queue"_s);
        Q_EMIT m_zone->mouseOverChanged(false);
        QCOMPARE(m_line->walkThroughText(), texts().value(u"ChooseLocation"_s));
    }

    void aStepWithoutItsTextLeavesTheLineBlank()
    {
        CVSpanQueueDropZone zone;
        CVWalkThrough line(m_model.get(), &zone, { [] { return false; }, [] { return false; }, [] { return true; } });
        line.setWalkThroughTextToProperStep();
        QVERIFY(line.walkThroughText().isEmpty());
        line.setWalkThroughTextTo(u"Drag"_s, u"DragTracksSpan"_s);
        QCOMPARE(line.walkThroughText(), u"Drag"_s);
    }

private:
    static QHash<QString, QString> texts()
    {
        return { { u"DragTracksSpan"_s, u"drag to span"_s }, { u"DragTracksRestore"_s, u"drag to restore"_s },
            { u"ChooseLocation"_s, u"choose a location"_s }, { u"ReadyToSpan"_s, u"ready to span"_s },
            { u"ReadyToRestore"_s, u"ready to restore"_s }, { u"BrowseSpanQueue"_s, u"browsing"_s } };
    }

    std::unique_ptr<CVSpanQueueDropZone> m_zone;
    std::unique_ptr<CVWalkThrough> m_line;
    bool m_restore = false;
    bool m_location = false;
    bool m_queueEmpty = true;
};

QTEST_MAIN(TestWalkThrough)
#include "tst_walkthrough.moc"
