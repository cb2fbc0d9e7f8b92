// The filter path bar and its pop-over over a selection model, without the window: how the
// filters in force fill the two lines, what the source row offers, and which clears go to the
// model and which out to the window. The whole window's bar is in tst_browsing.
#include "Browsing/CVFilterPathDelegate.h"
#include "Browsing/CVSelectionModel.h"
#include "CVPartTest.h"
#include "Library/CVLibraryManager.h"
#include "Platform/CVSettings.h"
#include "Views/CVFilterPathBar.h"
#include "Views/CVFilterPathPopover.h"

#include <QAction>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
const QString arrow = u"   \u25B8   "_s;
}

class TestFilterPath : public QObject, private CVPartTest {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        setUpParts(Model::Selection);
        m_model->setLiveCheck([this] { return m_live; });
        m_live = true;
        m_queueEmpty = true;
        m_bar = std::make_unique<CVFilterPathBar>();
        m_popover = std::make_unique<CVFilterPathPopover>();
        m_browseItem = std::make_unique<QAction>();
        m_path = std::make_unique<CVFilterPathDelegate>(m_model.get(), m_settings, m_bar.get(), m_popover.get(),
            m_browseItem.get(), [this] { return m_queueEmpty; });
        m_path->refreshFilterPathBar();
    }
    void cleanup()
    {
        m_path.reset();
        m_browseItem.reset();
        m_popover.reset();
        m_bar.reset();
        tearDownParts();
    }

    void theLinesFillAsFiltersComeIntoForce()
    {
        QCOMPARE(m_bar->lineOneString(), u"Browsing Library"_s);
        QCOMPARE(m_bar->lineTwoString(), u"All Tracks"_s);
        // Up to two filters stay on line two, under the source's title.
        m_model->setSpanFilter(u"Not Spanned"_s);
        m_model->setMedia(u"Music"_s);
        QCOMPARE(m_bar->lineOneString(), u"Browsing Library"_s);
        QCOMPARE(m_bar->lineTwoString(), u"Span Filter : Not Spanned"_s + arrow + u"Media Type : Music"_s);
        // A third moves the first onto line one.
        m_model->setPlaylist(u"ABC"_s, u"Rock"_s, CVPredicate::fromText({}));
        QCOMPARE(m_bar->lineOneString(), u"Library"_s + arrow + u"Span Filter : Not Spanned"_s);
        QCOMPARE(m_bar->lineTwoString(), u"Media Type : Music"_s + arrow + u"Playlist : Rock"_s);
        // A fourth, two on each line.
        m_model->setLocation(u"/media/Films"_s, u"Films"_s);
        QCOMPARE(m_bar->lineOneString(),
            u"Library"_s + arrow + u"Span Filter : Not Spanned"_s + arrow + u"Media Type : Music"_s);
        QCOMPARE(m_bar->lineTwoString(), u"Playlist : Rock"_s + arrow + u"Location : Films"_s);
        QCOMPARE(m_popover->rowDescription(1), u"No Search Query"_s);
        QCOMPARE(m_popover->rowDescription(5), u"Films"_s);
    }

    void nothingChangesUntilTheModelAnnounces()
    {
        m_live = false;
        m_model->setSpanFilter(u"Not Spanned"_s);
        QCOMPARE(m_bar->lineTwoString(), u"All Tracks"_s);
        m_live = true;
        m_model->setMedia(u"Music"_s);
        QCOMPARE(m_bar->lineTwoString(), u"Span Filter : Not Spanned"_s + arrow + u"Media Type : Music"_s);
    }

    void theSourceRowFollowsTheQueue()
    {
        QCOMPARE(m_popover->browseTitle(), u"Span Queue Empty"_s);
        QVERIFY(!m_browseItem->isEnabled());
        m_queueEmpty = false;
        m_model->queueContentsChanged();
        QCOMPARE(m_popover->browseTitle(), u"Browse Span Queue"_s);
        QVERIFY(m_browseItem->isEnabled());
        m_model->setBrowsingQueue(true);
        QCOMPARE(m_bar->lineOneString(), u"Browsing Spanning Queue"_s);
        QCOMPARE(m_popover->browseTitle(), u"Browse Library"_s);
        QCOMPARE(m_browseItem->text(), u"Browse Library"_s);
    }

    void theSearchAndTheQueueAreTheWindowsToChange()
    {
        QSignalSpy search(m_path.get(), &CVFilterPathDelegate::searchClearRequested);
        QSignalSpy browse(m_path.get(), &CVFilterPathDelegate::browseQueueToggleRequested);
        m_model->setMedia(u"Music"_s);
        m_model->setLocation(u"/media/Films"_s, u"Films"_s);
        m_path->filterPathMenuItemAction(0, 0);
        QCOMPARE(browse.size(), 1);
        QCOMPARE(m_model->media(), u"Music"_s);
        // Clear all: the model's filters here, the search field's by signal.
        m_path->filterPathMenuItemAction(0, 1);
        QCOMPARE(search.size(), 1);
        QCOMPARE(m_model->media(), u"."_s);
        QVERIFY(!m_model->hasLocation());
        QCOMPARE(m_bar->lineTwoString(), u"All Tracks"_s);
    }

    void movingAFilterPastTheEndsKeepsItInTheList()
    {
        const QStringList before = m_settings->stringListValue(CVSettingsKey::FilterPathOrder);
        m_path->moveFilter(before.last(), 1);
        m_path->moveFilter(before.first(), -1);
        QCOMPARE(m_settings->stringListValue(CVSettingsKey::FilterPathOrder), before);
        m_path->moveFilter(u"Nonsense"_s, 1);
        QCOMPARE(m_settings->stringListValue(CVSettingsKey::FilterPathOrder), before);
    }

private:
    std::unique_ptr<CVFilterPathBar> m_bar;
    std::unique_ptr<CVFilterPathPopover> m_popover;
    std::unique_ptr<QAction> m_browseItem;
    std::unique_ptr<CVFilterPathDelegate> m_path;
    bool m_live = true;
    bool m_queueEmpty = true;
};

QTEST_MAIN(TestFilterPath)
#include "tst_filterpath.moc"
