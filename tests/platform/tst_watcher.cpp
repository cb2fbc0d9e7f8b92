#include "CVTestFiles.h"
#include "Platform/FileSystemEventWatcher.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

using namespace Qt::StringLiterals;
using W = FileSystemEventWatcher;

namespace {

struct Listener : FileSystemEventListener {
    void pathWatcher(FileSystemEventWatcher *, const FileSystemEvent &event) override
    {
        paths.append(event.eventPath());
        thread = QThread::currentThread();
    }
    QStringList paths;
    QThread *thread = nullptr;
};

} // namespace

class TestWatcher : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startTwiceKeepsTheFirstList()
    {
        QTemporaryDir a;
        QTemporaryDir b;
        W watcher;
        QVERIFY(!watcher.startWatchingPaths({}));
        QVERIFY(!watcher.stopWatchingPaths());
        QVERIFY(!watcher.flushEventStreamSync());
        QVERIFY(!watcher.flushEventStreamAsync());
        QCOMPARE(watcher.streamDescription(),
            u"The event stream is not running. Start it by calling: startWatchingPaths:"_s);
        QVERIFY(watcher.startWatchingPaths({ a.path() }));
        QVERIFY(!watcher.startWatchingPaths({ b.path() }));
        QCOMPARE(watcher.watchedPaths(), QStringList { a.path() });
        QVERIFY(watcher.isWatchingPaths());
        QVERIFY(watcher.streamDescription().contains(a.path()));
        QVERIFY(watcher.stopWatchingPaths());
        QVERIFY(!watcher.isWatchingPaths());
        QCOMPARE(W::sharedPathWatcher(), W::sharedPathWatcher());
    }

    void changesArriveBatchedPerFolder()
    {
        QTemporaryDir root;
        W watcher;
        watcher.setNotificationLatency(0.3);
        Listener listener;
        watcher.setDelegate(&listener);
        QSignalSpy spy(&watcher, &W::eventOccurred);
        QVERIFY(watcher.startWatchingPaths({ root.path() + u'/' }));
        QElapsedTimer clock;
        clock.start();
        writeFile(root.filePath(u"one.mp3"_s), "1");
        writeFile(root.filePath(u"two.mp3"_s), "2");
        QVERIFY(spy.wait(5000));
        QVERIFY(clock.elapsed() >= 250); // held for the latency
        QCOMPARE(listener.paths, QStringList { root.path() }); // one event for the folder
        const FileSystemEvent last = watcher.lastEvent();
        QCOMPARE(last.eventPath(), root.path());
        QVERIFY(last.eventFlag() & W::ItemCreated);
        QVERIFY(last.eventFlag() & W::ItemIsFile);
        QVERIFY(last.eventId() > 0);

        // A folder made during the watch is watched too.
        QDir(root.path()).mkdir(u"New"_s);
        QVERIFY(spy.wait(5000));
        writeFile(root.filePath(u"New/three.mp3"_s), "3");
        QTRY_VERIFY_WITH_TIMEOUT(listener.paths.contains(root.filePath(u"New"_s)), 5000);
    }

    void excludedFoldersNeverReachTheListener()
    {
        QTemporaryDir root;
        QDir(root.path()).mkpath(u"Skip/Deeper"_s);
        QDir(root.path()).mkpath(u"Keep"_s);
        W watcher;
        watcher.setNotificationLatency(10); // only the flush delivers
        watcher.setExcludedPaths({ root.filePath(u"Skip"_s) });
        Listener listener;
        watcher.setDelegate(&listener);
        QVERIFY(watcher.startWatchingPaths({ root.path() }));
        writeFile(root.filePath(u"Skip/a"_s), "a");
        writeFile(root.filePath(u"Skip/Deeper/b"_s), "b");
        writeFile(root.filePath(u"Keep/c"_s), "c");
        QVERIFY(watcher.flushEventStreamSync());
        QCOMPARE(listener.paths, QStringList { root.filePath(u"Keep"_s) });

        listener.paths.clear();
        watcher.setIgnoreEventsFromSubDirs(false);
        writeFile(root.filePath(u"Skip/a2"_s), "a");
        writeFile(root.filePath(u"Skip/Deeper/b2"_s), "b");
        QVERIFY(watcher.flushEventStreamSync());
        QCOMPARE(listener.paths, QStringList { root.filePath(u"Skip/Deeper"_s) });
    }

    void aDriveThatAppearsIsSeen()
    {
        QTemporaryDir root;
        const QString drive = root.filePath(u"Drive"_s);
        W watcher;
        watcher.setNotificationLatency(10);
        QVERIFY(watcher.startWatchingPaths({ drive }));
        QDir(root.path()).mkdir(u"Drive"_s);
        QVERIFY(watcher.flushEventStreamSync());
        QCOMPARE(watcher.lastEvent().eventPath(), drive);
        QVERIFY(watcher.lastEvent().eventFlag() & W::RootChanged);
        writeFile(drive + u"/x"_s, "x");
        QVERIFY(watcher.flushEventStreamSync());
        QCOMPARE(watcher.lastEvent().eventPath(), drive);
        QVERIFY(watcher.lastEvent().eventFlag() & W::ItemCreated);
    }

    // Watching folders walks nothing: the trees below them stay unwatched, but a folder made in
    // one while watching is the run's own, and is followed.
    void watchingFoldersWalksNoTree()
    {
        QTemporaryDir root;
        QDir(root.path()).mkpath(u"Old/Deeper/Deepest"_s);
        W watcher;
        watcher.setNotificationLatency(10);
        Listener listener;
        watcher.setDelegate(&listener);
        QVERIFY(watcher.startWatchingFolders({ root.path(), root.filePath(u"Not There Yet"_s) }));
        QCOMPARE(watcher.watchCount(), 1);
        writeFile(root.filePath(u"Old/Deeper/a"_s), "a");
        QVERIFY(watcher.flushEventStreamSync());
        QVERIFY(listener.paths.isEmpty());

        QDir(root.path()).mkpath(u"New/Album"_s);
        QVERIFY(watcher.flushEventStreamSync());
        writeFile(root.filePath(u"New/Album/b"_s), "b");
        QDir(root.path()).mkdir(u"Not There Yet"_s);
        QVERIFY(watcher.flushEventStreamSync());
        QVERIFY2(listener.paths.contains(root.filePath(u"New/Album"_s)), qPrintable(listener.paths.join(u", "_s)));
        QVERIFY(listener.paths.contains(root.filePath(u"Not There Yet"_s)));
        QVERIFY(!listener.paths.contains(root.filePath(u"Old/Deeper"_s)));
        QCOMPARE(watcher.watchCount(), 4);
        QVERIFY(watcher.stopWatchingPaths());
        QCOMPARE(watcher.watchCount(), 0);
    }

    void eventsArriveOnTheChosenThread()
    {
        QTemporaryDir root;
        QThread thread;
        thread.start();
        W watcher;
        watcher.setNotificationLatency(0.05);
        Listener listener;
        watcher.setDelegate(&listener);
        QVERIFY(watcher.startWatchingPaths({ root.path() }, &thread));
        writeFile(root.filePath(u"f"_s), "f");
        QTRY_VERIFY_WITH_TIMEOUT(listener.thread != nullptr, 5000);
        QCOMPARE(listener.thread, &thread);
        QVERIFY(watcher.stopWatchingPaths());
        thread.quit();
        thread.wait();
    }
};

QTEST_GUILESS_MAIN(TestWatcher)
#include "tst_watcher.moc"
