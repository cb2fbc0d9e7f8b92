#include "CVLibraryGenerator.h"
#include "CVSpanSession.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "Engine/CVDBusPlayerLink.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVTrack.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVInstanceLock.h"
#include "Platform/CVSettings.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QElapsedTimer>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QtTest>

#include <csignal>

using namespace Qt::StringLiterals;

// The D-Bus player link against a real player process on a private session bus.
class TestDBusPlayer : public QObject {
    Q_OBJECT

private:
    const QString m_service = u"org.mpris.MediaPlayer2.corvana-testplayer"_s;

    static bool registered(const QString &name)
    {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(name).value();
    }

    QStringList playerCommand(const QStringList &extra = {}) const
    {
        return QStringList { QStringLiteral(CORVANA_TESTPLAYER), u"--library"_s, m_library, u"--record"_s, m_record }
        + extra;
    }

    void startPlayer(const QStringList &extra = {})
    {
        const QStringList command = playerCommand(extra);
        auto *process = new QProcess(this);
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->start(command.first(), command.mid(1));
        QVERIFY(process->waitForStarted());
        m_players.append(process);
        QTRY_VERIFY_WITH_TIMEOUT(registered(m_service), 10000);
    }

    QStringList recorded() const { return QString::fromUtf8(readAll(m_record)).split(u'\n', Qt::SkipEmptyParts); }

    std::unique_ptr<CVDBusPlayerLink> link() const
    {
        auto link = std::make_unique<CVDBusPlayerLink>(m_service);
        link->setLaunchCommand(playerCommand());
        return link;
    }

    QHash<QString, QString> libraryLocations() const
    {
        CVLibraryContents contents;
        CVLibraryFileReader().readFile(m_library, contents);
        QHash<QString, QString> locations;
        for (const CVTrack &track : contents.tracks)
            locations.insert(track.text(CVAttr::PersistentID), track.text(CVAttr::Location));
        return locations;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus: run under dbus-run-session");
    }

    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_library = m_env->filePath(u"Music/iTunes/iTunes Library.xml"_s);
        m_record = m_env->filePath(u"calls.txt"_s);
        CVLibraryGeneratorOptions options;
        options.tracks = 60;
        options.mediaRoot = m_env->filePath(u"Music/iTunes"_s);
        options.secondDrive = m_env->filePath(u"Archive"_s);
        options.createMediaFiles = true;
        QDir().mkpath(QFileInfo(m_library).path());
        QVERIFY(CVLibraryGenerator(options).write(m_library));
        CVLibraryContents contents;
        QVERIFY(CVLibraryFileReader().readFile(m_library, contents));
        for (const CVTrack &track : contents.tracks) {
            if (track.text(CVAttr::MediaType) == u"Music"_s && QFileInfo::exists(track.text(CVAttr::Location))) {
                m_pid = track.text(CVAttr::PersistentID);
                m_location = track.text(CVAttr::Location);
                break;
            }
        }
        QVERIFY(!m_pid.isEmpty());
    }

    void cleanup()
    {
        for (QProcess *process : std::as_const(m_players)) {
            process->kill();
            process->waitForFinished();
            delete process;
        }
        m_players.clear();
        // A player the link started again is detached from us.
        if (registered(m_service)) {
            const uint pid = QDBusConnection::sessionBus().interface()->servicePid(m_service).value();
            if (pid > 0)
                ::kill(pid_t(pid), SIGKILL);
        }
        QTRY_VERIFY_WITH_TIMEOUT(!registered(m_service), 10000);
        m_env.reset();
    }

    void theBusPlayerIsChosenWhenItRuns()
    {
        auto fileLink = CVPlayerLink::choose(m_library, nullptr);
        QVERIFY(dynamic_cast<CVLibraryFilePlayerLink *>(fileLink.get()));
        startPlayer();
        auto busLink = CVPlayerLink::choose(m_library, nullptr);
        auto *dbus = dynamic_cast<CVDBusPlayerLink *>(busLink.get());
        QVERIFY(dbus);
        QCOMPARE(dbus->service(), m_service);
    }

    void locationsReachTheLibraryFileWhenThePlayerQuits()
    {
        startPlayer({ u"--quit-delay"_s, u"1200"_s });
        auto player = link();
        QVERIFY(player->isRunning());
        const QString target = m_env->filePath(u"Span/Ünï \"q\" 100%.mp3"_s);
        QVERIFY(player->setTrackLocation(m_pid, target));
        QCOMPARE(player->trackLocation(m_pid).value_or(QString()), target);
        // A track the player does not hold: no change, no error raised.
        QVERIFY(!player->setTrackLocation(u"0000000000000000"_s, u"/x.mp3"_s));
        QVERIFY(!player->trackLocation(u"0000000000000000"_s));

        // The player takes its time to quit; the quit waits for it.
        CVMediaSpanner spanner(player.get(), nullptr, nullptr);
        QElapsedTimer clock;
        clock.start();
        spanner.quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
        QVERIFY(clock.elapsed() >= 1000);
        QVERIFY(!player->isRunning()); // it was stopped: not started again
        QCOMPARE(libraryLocations().value(m_pid), target);
    }

    void misbehavingPlayers()
    {
        startPlayer({ u"--keep-location"_s, m_pid });
        auto player = link();
        QVERIFY(player->setTrackLocation(m_pid, m_env->filePath(u"Span/a.mp3"_s)));
        QCOMPARE(player->trackLocation(m_pid).value_or(QString()), m_location); // kept the old place
        cleanup();
        init();

        startPlayer({ u"--move-file"_s, m_pid });
        player = link();
        const QString moved = QFileInfo(m_location).absolutePath() + u"/Moved "_s + QFileInfo(m_location).fileName();
        QVERIFY(player->setTrackLocation(m_pid, m_location));
        QCOMPARE(player->trackLocation(m_pid).value_or(QString()), moved);
        QVERIFY(QFileInfo::exists(moved));
    }

    void aPlayerThatDoesNotAnswerCostsOnlyTheTimeout()
    {
        startPlayer({ u"--no-answer"_s });
        auto player = link();
        player->setCallTimeout(500);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!player->setTrackLocation(m_pid, u"/x.mp3"_s));
        QVERIFY(!player->playerState());
        QVERIFY(clock.elapsed() < 5000);
        QVERIFY(!m_env->log.isEmpty());
        QVERIFY2(m_env->log[0].startsWith(u"Corvana ScriptingBridge Error: "_s), qPrintable(m_env->log[0]));
    }

    void relaunchRestoresPausedPlayback()
    {
        startPlayer(
            { u"--state"_s, u"Paused"_s, u"--track"_s, m_pid, u"--playlist"_s, u"Music"_s, u"--position"_s, u"42"_s });
        auto player = link();
        QCOMPARE(player->playerState(), std::optional<quint32>(CVPlayerLink::StatePaused));
        CVMediaSpanner spanner(player.get(), nullptr, nullptr);
        spanner.quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
        QVERIFY(player->isRunning()); // a new player process
        QVERIFY(m_players.first()->state() == QProcess::NotRunning || m_players.first()->waitForFinished(5000));
        QCOMPARE(player->playerState(), std::optional<quint32>(CVPlayerLink::StatePaused));
        QCOMPARE(player->currentTrackPersistentID(), m_pid);
        QCOMPARE(player->currentPlaylistName(), u"Music"_s);
        QCOMPARE(player->playerPosition(), std::optional<int>(42));
        QCOMPARE(recorded(), QStringList({ u"Quit"_s, u"PlayTrackOnce Music "_s + m_pid }));
    }

    void playingAtTheStartIsNotResumed()
    {
        startPlayer({ u"--state"_s, u"Playing"_s, u"--track"_s, m_pid, u"--playlist"_s, u"Music"_s });
        auto player = link();
        CVMediaSpanner spanner(player.get(), nullptr, nullptr);
        spanner.quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
        QVERIFY(!player->isRunning());
        QCOMPARE(recorded(), QStringList { u"Quit"_s });
    }

    void resultsRowsReachThePlayerAndTheFileManager()
    {
        startPlayer({ u"--file-manager"_s });
        auto player = link();
        CVFileManagerLink files;
        CVMediaSpanner spanner(player.get(), &files, nullptr);
        CVTrack track;
        track.setText(CVAttr::PersistentID, m_pid);
        track.setText(CVAttr::MediaType, u"Music"_s);
        track.setText(CVAttr::Location, m_location);
        spanner.playInITunesAction(&track);
        spanner.revealInITunesAction(&track);
        spanner.showInFinderAction(&track);
        QCOMPARE(recorded(),
            QStringList({ u"PlayTrackOnce Music "_s + m_pid, u"Raise"_s, u"RevealTrack Music "_s + m_pid,
                u"ShowItems "_s + QUrl::fromLocalFile(m_location).toString(QUrl::FullyEncoded) }));
        QCOMPARE(player->playerState(), std::optional<quint32>(CVPlayerLink::StatePlaying));
        QCOMPARE(player->currentTrackPersistentID(), m_pid);
    }

    void withoutAFileManagerTheOpenerShowsTheFolder()
    {
        QVERIFY(!registered(u"org.freedesktop.FileManager1"_s));
        const QString script = m_env->filePath(u"opener"_s);
        const QString log = m_env->filePath(u"opened"_s);
        writeFile(script, "#!/bin/sh\necho \"$1\" >> '" + QFile::encodeName(log) + "'\nexit \"${OPENER_STATUS:-0}\"\n");
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        CVFileManagerLink files;
        files.setOpener(script);
        QVERIFY(files.selectFile(m_location));
        QCOMPARE(readAll(log), QFileInfo(m_location).absolutePath().toUtf8() + '\n');
        // The opener's exit status decides.
        qputenv("OPENER_STATUS", "4");
        QVERIFY(!files.selectFile(m_location));
        qunsetenv("OPENER_STATUS");
        files.setOpener(m_env->filePath(u"no such opener"_s));
        QVERIFY(!files.openPath(m_location));
    }

    void applicationsStartByProgramOrDesktopEntry()
    {
        CVFileManagerLink files;
        QVERIFY(!files.launchApplication(u"no-such-application-anywhere"_s));
        if (QStandardPaths::findExecutable(u"gio"_s).isEmpty()
            && QStandardPaths::findExecutable(u"gtk-launch"_s).isEmpty())
            QSKIP("neither gio nor gtk-launch is installed");
        const QString marker = m_env->filePath(u"launched"_s);
        writeFile(m_env->filePath(u".local/share/applications/org.example.Marker.desktop"_s),
            "[Desktop Entry]\nType=Application\nName=Marker App\nExec=touch " + QFile::encodeName(marker) + "\n");
        QVERIFY(files.launchApplication(u"Marker App"_s));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(marker), 10000);
    }

    void oneCorvanaPerSession()
    {
        const QString name = QString::fromLatin1(CVInstanceLock::BusName);
        {
            CVInstanceLock lock(m_env->filePath(u"a.lock"_s));
            QVERIFY(lock.tryLock());
            QVERIFY(registered(name));
        }
        QTRY_VERIFY_WITH_TIMEOUT(!registered(name), 5000);
        // A Corvana whose lock file lies elsewhere still owns the name: no second one.
        auto *other = new QProcess(this);
        other->start(QStringLiteral(CORVANA_TESTPLAYER), { u"--library"_s, m_library, u"--name"_s, name });
        m_players.append(other);
        QTRY_VERIFY_WITH_TIMEOUT(registered(name), 10000);
        CVInstanceLock second(m_env->filePath(u"b.lock"_s));
        QVERIFY(!second.tryLock());
        QVERIFY(!QFileInfo::exists(m_env->filePath(u"b.lock"_s)));
    }

    void spanThroughTheBusPlayer()
    {
        // The player keeps the old place of one track until it is started again.
        QString stubborn;
        {
            CVLibraryContents contents;
            QVERIFY(CVLibraryFileReader().readFile(m_library, contents));
            for (const CVTrack &t : contents.tracks)
                if (t.text(CVAttr::MediaType) == u"Music"_s && t.text(CVAttr::PersistentID) != m_pid)
                    stubborn = t.text(CVAttr::PersistentID);
        }
        startPlayer({ u"--keep-location"_s, stubborn });
        auto player = link();
        CVSpanSession session(m_library);
        session.usePlayerLink(player.get());
        session.settings.setValue(CVSettingsKey::FullSpanReattempts, 1);
        const QString span = m_env->filePath(u"Span"_s);
        const QList<CVTrack *> tracks = session.select(u"( MediaType == 'Music' )"_s);
        QSignalSpy header(&session.spanner, &CVMediaSpanner::headerChanged);
        session.span(tracks, span);
        QCOMPARE(session.spanner.lastResults().successes, int(tracks.size()));
        int verifications = 0;
        for (const QList<QVariant> &h : header)
            verifications += h.at(0).toString().startsWith(u"Verifying"_s);
        QCOMPARE(verifications, 2); // the started-again player took the stubborn track
        const QHash<QString, QString> after = libraryLocations();
        for (const CVTrack *t : tracks)
            QVERIFY(after.value(t->text(CVAttr::PersistentID)).startsWith(span + u'/'));
        QVERIFY(recorded().contains(u"Quit"_s));
    }

    void copiesThatCannotBeUsedThroughTheBusPlayer()
    {
        startPlayer();
        auto player = link();
        CVSpanSession session(m_library);
        session.usePlayerLink(player.get());
        const QString span = m_env->filePath(u"Span"_s);
        const QList<CVTrack *> tracks = session.select(u"( MediaType == 'Music' )"_s).mid(0, 3);
        QStringList originals;
        for (const CVTrack *t : tracks)
            originals.append(t->text(CVAttr::Location));
        session.host.location = span;
        // A stranger at the first destination; the second copy goes away before verification.
        const QString stranger = session.spanner.createNewPathForItem(tracks[0], QFileInfo(originals[0]).fileName());
        writeFile(stranger, "a stranger");
        const QString lostCopy = session.spanner.createNewPathForItem(tracks[1], QFileInfo(originals[1]).fileName());
        connect(&session.spanner, &CVMediaSpanner::headerChanged, this, [&](const QString &header) {
            if (header.startsWith(u"Verifying"_s) && QFileInfo::exists(lostCopy))
                QVERIFY(QFile::rename(lostCopy, m_env->filePath(u"taken away.m4a"_s)));
        });
        session.span(tracks, span);
        const QStringList rows = session.messages();
        QVERIFY2(rows.contains(
                     u"A different file already exists at “%1”; both files were left as they are."_s.arg(stranger)),
            qPrintable(rows.join(u'\n')));
        QVERIFY2(rows.contains(u"The copy at “%1” cannot be used (it is no longer there); the original file stays at "
                               "“%2”, and the player points at it again."_s.arg(lostCopy, originals[1])),
            qPrintable(rows.join(u'\n')));
        QCOMPARE(session.spanner.lastResults().successes, 1);
        // The player was never sent to the stranger, and was sent back to the untouched original.
        QVERIFY(recorded().filter(tracks[0]->text(CVAttr::PersistentID)).filter(u"SetTrackLocation"_s).isEmpty());
        const QHash<QString, QString> after = libraryLocations();
        QCOMPARE(after.value(tracks[0]->text(CVAttr::PersistentID)), originals[0]);
        QCOMPARE(after.value(tracks[1]->text(CVAttr::PersistentID)), originals[1]);
        QVERIFY(QFileInfo::exists(originals[0]) && QFileInfo::exists(originals[1]));
        QCOMPARE(readAll(stranger), QByteArray("a stranger"));
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
    QString m_library;
    QString m_record;
    QString m_pid;
    QString m_location;
    QList<QProcess *> m_players;
};

QTEST_GUILESS_MAIN(TestDBusPlayer)
#include "tst_dbusplayer.moc"
