#include "CVLibraryGenerator.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "CVTestPresenter.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpannerHost.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVTrack.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVTrash.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

// The real Trash, with the desktop's viewers replaced by a record of what was asked.
struct RecordingFileManager : CVFileManagerLink {
    bool selectFile(const QString &path) override
    {
        calls.append(u"select "_s + path);
        return true;
    }
    bool openPath(const QString &path) override
    {
        calls.append(u"open "_s + path);
        return true;
    }
    bool openTrash() override
    {
        calls.append(u"open trash"_s);
        return true;
    }
    QStringList calls;
};

struct Host : CVSpannerHost, CVSpannerRunHost {
    bool isResultsViewOnScreen() const override { return results; }
    bool isSpanningViewOnScreen() const override { return spanning; }
    void telliTunesToQuit() override { ++quitRequests; }
    bool saveAction() override { return true; }
    bool results = true;
    bool spanning = false;
    int quitRequests = 0;
};

} // namespace

class TestMediaSpanner : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_env->trashRoots.clear();
    }
    void cleanup() { m_env.reset(); }

    void trashSummaryTexts_data()
    {
        QTest::addColumn<int>("files");
        QTest::addColumn<int>("folders");
        QTest::addColumn<bool>("empty");
        QTest::addColumn<QString>("text");
        QTest::newRow("nothing") << 0 << 0 << false << u"No files or folders moved to Trash."_s;
        QTest::newRow("one file, two folders, trash full")
            << 1 << 2 << false << u"Moved 1 successfully copied file (and 2 empty folders) to Trash."_s;
        QTest::newRow("emptied") << 3 << 1 << true
                                 << u"Removed 3 successfully copied files (and 1 empty folder) by emptying Trash."_s;
        QTest::newRow("no folders") << 2 << 0 << false << u"Moved 2 successfully copied files to Trash."_s;
    }

    void trashSummaryTexts()
    {
        QFETCH(int, files);
        QFETCH(int, folders);
        QFETCH(bool, empty);
        QFETCH(QString, text);
        QCOMPARE(CVMediaSpanner::trashSummaryText(files, folders, empty), text);
    }

    void trashSummaryFollowsTheViews()
    {
        RecordingFileManager files;
        Host host;
        CVMediaSpanner spanner(nullptr, &files, nullptr);
        spanner.setHost(&host);
        spanner.setRunHost(&host);
        QSignalSpy summary(&spanner, &CVMediaSpanner::trashSummaryChanged);

        host.results = false;
        spanner.setRunUnderWay(true);
        host.spanning = true;
        QVERIFY(spanner.isTrashEmpty());
        QCOMPARE(summary.size(), 0);

        host.results = true;
        spanner.setRunUnderWay(false);
        QVERIFY(spanner.isTrashEmpty());
        QCOMPARE(summary.last().at(1).toBool(), true); // nothing trashed: buttons hidden

        writeFile(m_env->filePath(u"old.mp3"_s), "old");
        QVERIFY(CVTrash::moveToTrash(m_env->filePath(u"old.mp3"_s)).ok);
        spanner.setTrashedFileCount(1);
        spanner.setTrashedFolderCount(2);
        QVERIFY(!spanner.isTrashEmpty());
        QCOMPARE(
            summary.last().at(0).toString(), u"Moved 1 successfully copied file (and 2 empty folders) to Trash."_s);
        QCOMPARE(summary.last().at(1).toBool(), false);
    }

    void emptyingTheTrashAsksFirst()
    {
        RecordingFileManager files;
        CVTestPresenter presenter;
        CVMediaSpanner spanner(nullptr, &files, &presenter);
        spanner.setTrashedFileCount(1);
        writeFile(m_env->filePath(u"old.mp3"_s), "old");
        QVERIFY(CVTrash::moveToTrash(m_env->filePath(u"old.mp3"_s)).ok);

        presenter.queueAnswer(CVPresenter::AlternateReturn);
        spanner.askToEmptyTrash();
        QCOMPARE(presenter.alerts.size(), 1);
        const CVAlert &alert = presenter.alerts[0];
        QCOMPARE(alert.title, u"\nAre you sure you want to empty the Trash?"_s);
        QCOMPARE(alert.text, u"Finder will confirm before emptying the Trash."_s);
        QCOMPARE(alert.defaultButton, u"Empty Trash…"_s);
        QCOMPARE(alert.alternateButton, u"Cancel"_s);
        QCOMPARE(alert.otherButton, u"Open Trash"_s);
        QVERIFY(!CVTrash::isEmpty());
        QVERIFY(files.calls.isEmpty());

        presenter.queueAnswer(CVPresenter::OtherReturn);
        spanner.emptyTrashAction();
        QCOMPARE(files.calls, QStringList { u"open trash"_s });
        QVERIFY(!CVTrash::isEmpty());

        QSignalSpy finished(&spanner, &CVMediaSpanner::emptyTrashFinished);
        QSignalSpy summary(&spanner, &CVMediaSpanner::trashSummaryChanged);
        presenter.queueAnswer(CVPresenter::DefaultReturn);
        spanner.askToEmptyTrash();
        QVERIFY(finished.wait(10000));
        QVERIFY(CVTrash::isEmpty());
        QCOMPARE(summary.last().at(0).toString(), u"Removed 1 successfully copied file by emptying Trash."_s);
    }

    void showInFileManagerPrefersTheSpannedFile()
    {
        RecordingFileManager files;
        CVMediaSpanner spanner(nullptr, &files, nullptr);
        CVTrack track;
        track.setText(CVAttr::Location, u"/home/ann/Music/a.mp3"_s);
        const QString span = m_env->filePath(u"Span/a.mp3"_s);
        track.setText(CVAttr::SpanLocation, span);
        writeFile(span, "a");
        spanner.showInFinderAction(&track);
        QFile::remove(span);
        spanner.showInFinderAction(&track);
        spanner.showInFinderAction(nullptr);
        QCOMPARE(files.calls, QStringList({ u"select "_s + span, u"select /home/ann/Music/a.mp3"_s }));
    }

    void quittingWritesTheLibraryFile()
    {
        const QString library = m_env->filePath(u"Music/iTunes/iTunes Library.xml"_s);
        CVLibraryGeneratorOptions options;
        options.tracks = 40;
        QDir().mkpath(QFileInfo(library).path());
        QVERIFY(CVLibraryGenerator(options).write(library));
        CVLibraryContents contents;
        QVERIFY(CVLibraryFileReader().readFile(library, contents));
        const QString pid = contents.tracks[5].text(CVAttr::PersistentID);

        CVLibraryFilePlayerLink link(library, m_env->path(), nullptr);
        CVMediaSpanner spanner(&link, nullptr, nullptr);
        QSignalSpy task(&spanner, &CVMediaSpanner::taskLineChanged);
        spanner.setLocationForTrackIniTunesWithPersistentID(pid, u"/Volumes/Span/x.mp3"_s);
        spanner.refreshTrackIniTunesWithPersistentID(pid);
        spanner.quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
        QCOMPARE(task.size(), 1);
        QCOMPARE(task[0].at(0).toString(), u"Quitting iTunes to Save Updated Library"_s);
        QCOMPARE(task[0].at(1).toInt(), int(Qt::AlignRight));
        CVLibraryContents after;
        QVERIFY(CVLibraryFileReader().readFile(library, after));
        QCOMPARE(after.tracks[5].text(CVAttr::Location), u"/Volumes/Span/x.mp3"_s);

        // Without a player nothing happens and nothing breaks.
        CVMediaSpanner nobody(nullptr, nullptr, nullptr);
        nobody.setLocationForTrackIniTunesWithPersistentID(pid, u"/x"_s);
        nobody.quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
        nobody.openITunesFromSpanResultsView();
        QVERIFY(nobody.isTrashEmpty());
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
};

QTEST_GUILESS_MAIN(TestMediaSpanner)
#include "tst_mediaspanner.moc"
