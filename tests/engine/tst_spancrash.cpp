#include "CVCliRun.h"
#include "CVGeneratedLibrary.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVSpanHistoryStore.h"
#include "Library/CVTrack.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <csignal>
#include <cstdio>

using namespace Qt::StringLiterals;

// Runs of the command-line tool killed at random moments: the next run recovers, and no
// media file is ever lost or changed.
class TestSpanCrash : public QObject {
    Q_OBJECT

private:
    QString libraryFile() const { return m_home->filePath(u"Music/iTunes/iTunes Library.xml"_s); }

private Q_SLOTS:
    void killedRunsAreRecovered()
    {
        m_home = std::make_unique<CVTestEnvironment>();
        CVLibraryGeneratorOptions options;
        options.tracks = 40;
        options.seed = 9;
        options.mediaRoot = m_home->filePath(u"Music/iTunes"_s);
        options.secondDrive = m_home->filePath(u"Archive"_s);
        options.mediaFileBytes = 400000;
        CVGeneratedLibrary library;
        QVERIFY2(library.write(libraryFile(), options), qPrintable(library.errorString));
        const QString span = m_home->filePath(u"Span"_s);
        QDir().mkpath(span);

        const QHash<QString, QByteArray> &digests = library.digests;
        QVERIFY(digests.size() > 30);
        const QStringList spanArgs { u"span"_s, u"--to"_s, span, u"--yes"_s, u"--allow-root"_s };
        const QStringList restoreArgs { u"restore"_s, u"--span-filter"_s, u"All Spanned"_s, u"--yes"_s,
            u"--allow-root"_s };

        int killedInRun = 0;
        qint64 runMs = 300; // how long an undisturbed run takes; measured as we go
        for (int round = 0; round < 20; ++round) {
            const QStringList args = round % 2 == 0 ? spanArgs : restoreArgs;
            QProcess victim;
            victim.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            victim.setStandardOutputFile(QProcess::nullDevice());
            QElapsedTimer clock;
            clock.start();
            startCli(victim, args);
            QVERIFY(victim.waitForStarted());
            const int delay = int(QRandomGenerator::global()->bounded(qint64(5), qMax<qint64>(10, runMs)));
            if (!victim.waitForFinished(delay)) {
                ::kill(pid_t(victim.processId()), SIGKILL);
                ++killedInRun;
                victim.waitForFinished();
                // The next start sees the crash and the same command completes the work.
                clock.restart();
                const CVCliRun run = runCli(args);
                const int status = run.status;
                const QByteArray output = run.out + run.err;
                runMs = qMax<qint64>(50, clock.elapsed());
                m_lastOutput = output;
                // Killed as it was exiting, the run was complete: nothing is left to do then (after a
                // restore, nothing is spanned any more to select; the checks below say whether that is so).
                const bool nothingLeft = status == 2 && output.trimmed().endsWith("You have not selected any tracks.")
                    && !output.contains("did not finish its last span or restore");
                QVERIFY2(status == 0 || (status == 1 && !output.contains("\nfailed ")) || nothingLeft,
                    output.right(3000).constData());
            } else {
                runMs = qMax<qint64>(50, clock.elapsed());
                QCOMPARE(victim.exitCode(), 0);
                m_lastOutput = "(not killed)";
            }

            // Every file is where the library says, byte for byte, or where the history says.
            const QHash<QString, QString> locations = libraryLocations(libraryFile());
            QHash<QString, QString> spanned;
            {
                CVSpanHistoryStore store;
                std::deque<CVSpanRecord> records;
                if (store.open(m_home->filePath(u".local/share/Corvana/SpanRestoreHistory.cvcddb"_s))
                    && store.fetchAll(records)) {
                    for (const CVSpanRecord &r : records)
                        spanned.insert(r.text(CVSpanAttr::PersistentID), r.text(CVSpanAttr::SpanLocation));
                }
            }
            for (auto [pid, expected] : digests.asKeyValueRange()) {
                const QString at = locations.value(pid);
                const bool inPlace = QFileInfo::exists(at) && fileDigest(at) == expected;
                const bool inHistory
                    = !inPlace && QFileInfo::exists(spanned.value(pid)) && fileDigest(spanned.value(pid)) == expected;
                QVERIFY2(inPlace || inHistory, qPrintable(u"round %1: %2 not at %3"_s.arg(round).arg(pid, at)));
            }
            // After a span every file lies in the span location, after a restore none does.
            for (auto [pid, expected] : digests.asKeyValueRange()) {
                Q_UNUSED(expected);
                if (locations.value(pid).startsWith(span + u'/') != (round % 2 == 0))
                    std::fprintf(stderr, "%s\n", m_lastOutput.constData());
                QVERIFY2(locations.value(pid).startsWith(span + u'/') == (round % 2 == 0),
                    qPrintable(u"round %1 (%2 killed): %3 at %4"_s.arg(round)
                                   .arg(killedInRun)
                                   .arg(pid, locations.value(pid))));
            }
        }
        qInfo("runs killed while working: %d of 20", killedInRun);
    }

private:
    std::unique_ptr<CVTestEnvironment> m_home;
    QByteArray m_lastOutput;
};

QTEST_GUILESS_MAIN(TestSpanCrash)
#include "tst_spancrash.moc"
