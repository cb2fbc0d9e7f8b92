#include "CVGeneratedLibrary.h"
#include "CVSpanSession.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "CVTestPresenter.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpanChecks.h"
#include "Engine/CVSpannerHost.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVTrack.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVSettings.h"

#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QtTest>

#include <sys/mount.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

using Session = CVFileSpanSession;

bool mountTmpfs(const QString &folder, const char *options)
{
    QDir().mkpath(folder);
    return ::mount("tmpfs", QFile::encodeName(folder).constData(), "tmpfs", 0, options) == 0;
}

} // namespace

class TestSpanRun : public QObject {
    Q_OBJECT

private:
    QString libraryFile() const { return m_env->filePath(u"Music/iTunes/iTunes Library.xml"_s); }

    void makeLibrary(int tracks, qint64 mediaBytes = 0, const QString &secondDrive = {})
    {
        CVLibraryGeneratorOptions options;
        options.tracks = tracks;
        options.seed = 5;
        options.mediaRoot = m_env->filePath(u"Music/iTunes"_s);
        options.secondDrive = secondDrive.isEmpty() ? m_env->filePath(u"Volumes/Archive"_s) : secondDrive;
        options.mediaFileBytes = mediaBytes;
        QVERIFY2(m_library.write(libraryFile(), options), qPrintable(m_library.errorString));
    }

    QString spanFolder() const { return m_env->filePath(u"Span Drive/Spanned"_s); }

private Q_SLOTS:
    void init() { m_env = std::make_unique<CVTestEnvironment>(); }
    void cleanup() { m_env.reset(); }

    void destinationPaths()
    {
        CVMediaSpanner spanner(nullptr, nullptr, nullptr);
        CVSessionHost host;
        host.location = u"/Span"_s;
        spanner.setRunHost(&host);
        const auto path = [&](std::initializer_list<std::pair<CVAttr, QVariant>> values) {
            CVTrack t;
            for (const auto &[a, v] : values) {
                if (a == CVAttr::Compilation || a == CVAttr::TrackNumber)
                    t.setInteger(a, v.toLongLong());
                else
                    t.setText(a, v.toString());
            }
            return spanner.createNewPathForItem(&t, u"01 a.mp3"_s);
        };
        QCOMPARE(path({ { CVAttr::MediaType, u"Music"_s }, { CVAttr::Compilation, 1 }, { CVAttr::Artist, u"X"_s },
                     { CVAttr::Album, u"Hits"_s } }),
            u"/Span/Music/Compilations/Hits/01 a.mp3"_s);
        QCOMPARE(path({ { CVAttr::MediaType, u"Music"_s } }), u"/Span/Music/Unknown Artist/Unknown Album/01 a.mp3"_s);
        QCOMPARE(path({ { CVAttr::MediaType, u"Podcasts"_s } }), u"/Span/Podcasts/Unknown Podcast/01 a.mp3"_s);
        QCOMPARE(path({ { CVAttr::MediaType, u"TV Shows"_s } }), u"/Span/TV Shows/Unknown Show/No Season/01 a.mp3"_s);
        QCOMPARE(path({ { CVAttr::MediaType, u"Books"_s }, { CVAttr::Artist, u"Ann"_s }, { CVAttr::Album, u"B"_s } }),
            u"/Span/Audiobooks/Ann/01 a.mp3"_s);
        QCOMPARE(path({ { CVAttr::MediaType, u"Movies"_s }, { CVAttr::Name, u"Film: Part 1?"_s } }),
            u"/Span/Movies/Film_ Part 1_/01 a.mp3"_s);
        QCOMPARE(path({ { CVAttr::MediaType, u"Music"_s }, { CVAttr::AlbumArtist, u"AC/DC"_s },
                     { CVAttr::Artist, u"no"_s } }),
            u"/Span/Music/AC_DC/Unknown Album/01 a.mp3"_s);
        m_env->log.clear();
        QCOMPARE(path({ { CVAttr::MediaType, u"Ringtones"_s } }),
            u"/Span/Ringtones/Unknown Artist/Unknown Album/01 a.mp3"_s);
        QCOMPARE(m_env->log, QStringList { u"UNCAUGHT MEDIATYPE!"_s });
        // Nothing a tag holds leads out of the span location.
        const QString escaped
            = path({ { CVAttr::MediaType, u"../../etc"_s }, { CVAttr::Artist, u".."_s }, { CVAttr::Album, u"/"_s } });
        QVERIFY2(!escaped.contains(u"/../"_s) && escaped.startsWith(u"/Span/"_s), qPrintable(escaped));
        const QString longName = path({ { CVAttr::MediaType, u"Music"_s }, { CVAttr::Artist, QString(300, u'é') } });
        for (const QString &part : longName.split(u'/'))
            QVERIFY(part.toUtf8().size() <= 255);
        // A name cut at 255 bytes is cleaned again: it never ends in a blank or a dot.
        for (const QChar end : { u' ', u'.' }) {
            const QString cut
                = CVMediaSpanner::replaceChactersInStringForFolderName(QString(254, u'a') + end + QString(20, u'b'));
            QCOMPARE(cut.toUtf8().size(), 255);
            QVERIFY(cut.endsWith(u'_'));
        }

        QCOMPARE(CVMediaSpanner::replaceChactersInStringForFolderName(u"What?"_s), u"What_"_s);
        QCOMPARE(CVMediaSpanner::replaceChactersInStringForFolderName(u".hidden"_s), u"_hidden"_s);
        QCOMPARE(CVMediaSpanner::replaceChactersInStringForFolderName(u"Vol. 2."_s), u"Vol. 2_"_s);
        QCOMPARE(CVMediaSpanner::replaceChactersInStringForFolderName(u"Name   "_s), u"Name"_s);
        QCOMPARE(CVMediaSpanner::replaceChactersInStringForFolderName(u"It’s <a> \"b\" *"_s), u"It_s _a_ _b_ _"_s);
        QCOMPARE(CVMediaSpanner::replaceChactersInStringForFolderName(u"O'Brien"_s), u"O'Brien"_s);
        QCOMPARE(CVMediaSpanner::getBasePathForPath(u"/"_s), u"/"_s);
        QCOMPARE(CVMediaSpanner::getBasePathForPath(QString()), u"nilPath"_s);

        CVTrack titled;
        titled.setText(CVAttr::Name, u"Song"_s);
        titled.setInteger(CVAttr::TrackNumber, 0);
        QCOMPARE(CVMediaSpanner::createDisplayTitleForItem(&titled), u"Unknown Artist · Unknown Album · Song"_s);
        titled.setInteger(CVAttr::TrackNumber, 3);
        QCOMPARE(CVMediaSpanner::createDisplayTitleForItem(&titled), u"Unknown Artist · Unknown Album · 3. Song"_s);

        host.restore = true;
        CVTrack restored;
        restored.setText(CVAttr::OriginalLocation, u"/home/ann/Music/x.mp3"_s);
        restored.setText(CVAttr::MediaType, u"Music"_s);
        QCOMPARE(spanner.createNewPathForItem(&restored, u"y.mp3"_s), u"/home/ann/Music/x.mp3"_s);
    }

    void spanVerifyRestore()
    {
        // A second drive of its own when the machine lets us mount one: its files go to its own Trash.
        QString archive = m_env->filePath(u"Archive Drive"_s);
        const bool mounted = mountTmpfs(archive, "size=256m");
        if (mounted)
            m_env->unmountAtEnd(archive);
        makeLibrary(40, 0, archive);
        const QHash<QString, QByteArray> &before = m_library.digests;
        QStringList originals;
        {
            Session s(libraryFile());
            QList<CVTrack *> music = s.select(u"( MediaType == 'Music' )"_s);
            QVERIFY(music.size() > 10);
            for (CVTrack *t : music)
                originals.append(t->text(CVAttr::Location));
            QSignalSpy header(&s.spanner, &CVMediaSpanner::headerChanged);
            s.span(music, spanFolder());
            QCOMPARE(header.first().at(0).toString(), u"Spanning %1 Tracks"_s.arg(music.size()));
            QVERIFY2(s.spanner.lastResults().successes == int(music.size()), qPrintable(s.messages().join(u'\n')));
            QVERIFY(
                s.spanner.lastResults().headline.startsWith(u"All %1 Tracks Successfully Spanned"_s.arg(music.size())));
            QCOMPARE(s.spanner.lastResults().tally, u"%1 tracks fully spanned"_s.arg(music.size()));
            QCOMPARE(s.spanner.trashedFileCount(), int(music.size()));
            QVERIFY(!s.settings.boolValue(CVSettingsKey::IsSpanning));
            QCOMPARE(s.settings.stringListValue(CVSettingsKey::SpanLocationHistory), QStringList { spanFolder() });
        }
        for (const QString &original : std::as_const(originals))
            QVERIFY2(!QFileInfo::exists(original), qPrintable(original));
        const bool fromArchive = std::any_of(
            originals.cbegin(), originals.cend(), [&](const QString &o) { return o.startsWith(archive); });
        QVERIFY(fromArchive);
        if (mounted)
            QVERIFY(!QDir(archive + u"/.Trash-"_s + QString::number(::getuid()) + u"/files"_s).isEmpty());
        if (!QStandardPaths::findExecutable(u"trash-list"_s).isEmpty()) {
            QProcess list;
            list.start(u"trash-list"_s, {});
            QVERIFY(list.waitForFinished(30000));
            const QString listed = QString::fromUtf8(list.readAllStandardOutput());
            for (const QString &original : std::as_const(originals))
                QVERIFY2(listed.contains(original), qPrintable(original));
        }
        {
            // The next start sees every track spanned, its bytes at the span location.
            Session s(libraryFile());
            const QList<CVTrack *> spanned = s.select(u"( FullSpan == 1 )"_s);
            QCOMPARE(spanned.size(), originals.size());
            for (CVTrack *t : spanned) {
                QVERIFY(t->text(CVAttr::Location).startsWith(spanFolder() + u'/'));
                QCOMPARE(fileDigest(t->text(CVAttr::Location)), before.value(t->text(CVAttr::PersistentID)));
            }
            // Spanning them again to the same place does nothing.
            s.span(spanned, spanFolder());
            QCOMPARE(s.spanner.lastResults().skips, int(spanned.size()));
            QVERIFY(s.messages().first().startsWith(u"Track already spanned to '"_s));
        }
        {
            Session s(libraryFile());
            const QList<CVTrack *> spanned = s.select(u"( ItemIsSpanned == 1 )"_s);
            s.restore(spanned);
            QStringList other = s.messages();
            other.removeAll(u"Track successfully restored to its original location."_s);
            QVERIFY2(s.spanner.lastResults().successes == int(spanned.size()), qPrintable(other.join(u'\n')));
            QVERIFY(s.spanner.lastResults().headline.contains(u"Restored"_s));
            QVERIFY(s.messages().contains(u"Track successfully restored to its original location."_s));
        }
        Session s(libraryFile());
        for (CVTrack *t : s.select(QString())) {
            if (before.contains(t->text(CVAttr::PersistentID)))
                QCOMPARE(fileDigest(t->currentPath()), before.value(t->text(CVAttr::PersistentID)));
        }
        for (const QString &original : std::as_const(originals))
            QVERIFY(QFileInfo::exists(original));
        QVERIFY(s.select(u"( ItemIsRestored == 1 )"_s).size() == originals.size());
        // The emptied folders of the span location went to the Trash, the location itself stays.
        QVERIFY(QFileInfo::exists(spanFolder()));
        QVERIFY(!QFileInfo::exists(spanFolder() + u"/Music"_s));

        // Restoring a track that was never spanned is refused per track.
        const QList<CVTrack *> never = s.select(u"( MediaType == 'Movies' )"_s);
        QVERIFY(!never.isEmpty());
        s.restore(never.mid(0, 1));
        QCOMPARE(s.messages(), QStringList { u"No need to restore this track, it was not spanned."_s });
    }

    void skipTheRestAndAVanishingLocation()
    {
        makeLibrary(30);
        Session s(libraryFile());
        const QList<CVTrack *> five = s.select(u"( MediaType == 'Music' )"_s).mid(0, 5);
        int copies = 0;
        connect(&s.spanner, &CVMediaSpanner::fileCopied, this, [&] {
            if (++copies == 2) {
                s.presenter.queueAnswer(CVPresenter::DefaultReturn);
                s.spanner.skipTheRestAction();
            }
        });
        QSignalSpy progress(&s.spanner, &CVMediaSpanner::progressChanged);
        s.span(five, spanFolder());
        QCOMPARE(s.spanner.lastResults().skips, 3);
        QCOMPARE(s.messages().count(u"You skipped the rest."_s), 3);
        QCOMPARE(s.presenter.alerts.first().title, u"Are you sure you want skip the rest?"_s);
        // The run's progress reached its end (2 steps a track).
        double last = 0;
        for (const QList<QVariant> &p : progress)
            if (p.at(1).toDouble() == 10)
                last = p.at(0).toDouble();
        QCOMPARE(last, 10.0);

        // The span location goes away during the run: what follows is skipped, nothing is lost.
        Session t(libraryFile());
        const QList<CVTrack *> rest = t.select(u"( MediaType == 'Music' AND ItemIsSpanned == 0 )"_s).mid(0, 4);
        const QString other = m_env->filePath(u"Other"_s);
        QDir().mkpath(other);
        int made = 0;
        connect(&t.spanner, &CVMediaSpanner::fileCopied, this, [&] {
            if (++made == 1)
                QVERIFY(QDir().rename(other, other + u" gone"_s));
        });
        t.span(rest, other);
        QCOMPARE(t.messages().count(u"Span location no longer existed at time of span."_s), 3);
        for (CVTrack *track : rest)
            QVERIFY(QFileInfo::exists(track->currentPath()) || QFileInfo::exists(other + u" gone"_s));
    }

    void noSpaceOnTheDestination()
    {
        // 100 MB of every drive stay free: a 5 MB track fits into 105 MB free but not into 104 MB.
        const QString tight = m_env->filePath(u"tight"_s);
        const QString roomy = m_env->filePath(u"roomy"_s);
        if (!mountTmpfs(tight, "size=104000000") || !mountTmpfs(roomy, "size=105100000"))
            QSKIP("this machine does not let the test mount a drive");
        m_env->unmountAtEnd(tight);
        m_env->unmountAtEnd(roomy);
        makeLibrary(6, 4990000);
        Session s(libraryFile());
        const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 1);
        QVERIFY(!tracks.isEmpty());
        s.span(tracks, tight);
        QCOMPARE(s.messages(), QStringList { u"File not copied, no more space available on destination drive."_s });
        QVERIFY(QFileInfo::exists(tracks[0]->currentPath()));
        s.span(tracks, roomy);
        QCOMPARE(s.spanner.lastResults().successes, 1);
    }

    void thePlayerKeepsTheOldPlace_data()
    {
        QTest::addColumn<int>("reattempts");
        QTest::newRow("two rounds") << 2;
        QTest::newRow("none") << 0;
    }

    void thePlayerKeepsTheOldPlace()
    {
        QFETCH(int, reattempts);
        makeLibrary(20);
        Session s(libraryFile());
        s.settings.setValue(CVSettingsKey::FullSpanReattempts, reattempts);
        const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 3);
        const QString stubborn = tracks[1]->text(CVAttr::PersistentID);
        const QString original = tracks[1]->text(CVAttr::Location);
        const QByteArray bytes = readAll(original);
        s.link.ignored.insert(stubborn);
        QSignalSpy header(&s.spanner, &CVMediaSpanner::headerChanged);
        s.span(tracks, spanFolder());

        int verifications = 0;
        int rounds = 0;
        for (const QList<QVariant> &h : header) {
            verifications += h.at(0).toString().startsWith(u"Verifying"_s);
            rounds += h.at(0).toString() == u"Reattempting Span for 1 Track"_s;
        }
        QCOMPARE(verifications, reattempts + 1);
        QCOMPARE(rounds, reattempts);
        QCOMPARE(s.link.calls.value(stubborn), reattempts + 1);
        QCOMPARE(s.spanner.lastResults().successes, 2);
        QVERIFY(s.messages().contains(u"Track could not be spanned for some reason. Copied file trashed, original file "
                                      "and iTunes location unchanged."_s));
        // The original is untouched and the useless copy is in the Trash.
        QCOMPARE(readAll(original), bytes);
        QVERIFY(!QFileInfo::exists(s.track(stubborn)->text(CVAttr::SpanLocation)));
    }

    void dependentTracksAreUpdated()
    {
        makeLibrary(20);
        QString pid;
        QString original;
        {
            Session s(libraryFile());
            CVTrack *t = s.select(u"( MediaType == 'Music' )"_s).first();
            pid = t->text(CVAttr::PersistentID);
            original = t->text(CVAttr::Location);
            s.span({ t }, spanFolder());
            QCOMPARE(s.spanner.lastResults().successes, 1);
            // With nothing dependent, the update does nothing at all.
            QSignalSpy header(&s.spanner, &CVMediaSpanner::headerChanged);
            s.spanner.updateDependentTracks();
            QCOMPARE(header.size(), 0);
        }
        // The player is made to point at the old place, where a link leads to the file, as the
        // helper leaves things.
        const QString spanPath = [&] {
            Session s(libraryFile());
            return s.track(pid)->text(CVAttr::SpanLocation);
        }();
        QVERIFY(QFile::link(spanPath, original));
        {
            CVLibraryFilePlayerLink link(libraryFile(), CVSpanHistory::applicationSupportFolder(), nullptr);
            QVERIFY(link.setTrackLocation(pid, original));
            QVERIFY(link.applyJournal());
        }
        Session s(libraryFile());
        QVERIFY(s.track(pid)->flag(CVAttr::SymSpan));
        s.spanner.updateDependentTracks();
        QCOMPARE(s.spanner.lastResults().successes, 1);
        Session after(libraryFile());
        QCOMPARE(after.track(pid)->text(CVAttr::Location), spanPath);
        QVERIFY(after.track(pid)->flag(CVAttr::FullSpan));
    }

    void resultsHeadlineAndTally()
    {
        CVTrack track;
        const auto rows = [&](int full, int dependent, int failed, int skipped) {
            QList<CVResultRow> list;
            for (int i = 0; i < full; ++i)
                list.append({ u"1"_s, CVResultIcon::FullSuccess, &track, u"ok"_s });
            for (int i = 0; i < dependent; ++i)
                list.append({ u"2"_s, CVResultIcon::LinkSuccess, &track, u"dep"_s });
            for (int i = 0; i < failed; ++i)
                list.append({ u"3"_s, CVResultIcon::Fail, &track, u"no"_s });
            for (int i = 0; i < skipped; ++i)
                list.append({ u"4"_s, CVResultIcon::Skip, &track, u"skip"_s });
            std::reverse(list.begin(), list.end());
            return list;
        };
        CVRunResults r = CVMediaSpanner::summarizeResults(rows(10, 0, 0, 0), false);
        QCOMPARE(r.headline, u"All 10 Tracks Successfully Spanned"_s);
        QCOMPARE(r.tally, u"10 tracks fully spanned"_s);
        r = CVMediaSpanner::summarizeResults(rows(7, 2, 1, 0), false);
        QCOMPARE(r.headline, u"9 of 10 Tracks Successfully Spanned · 2 Dependent"_s);
        QCOMPARE(r.tally, u"7 tracks fully spanned     ·     2 tracks dependently spanned     ·     1 track failed"_s);
        QCOMPARE(r.rows.first().sortResult, 1);
        QCOMPARE(r.rows.last().sortResult, 3);
        r = CVMediaSpanner::summarizeResults(rows(0, 0, 0, 1), true);
        QCOMPARE(r.tally, u"1 track skipped"_s);
        QCOMPARE(r.headline, u"0 of 1 Tracks Successfully Restored"_s);
    }

    void checksBeforeARun()
    {
        makeLibrary(20);
        Session s(libraryFile());
        const CVSpanChecks checks(s.spanner, s.library);
        QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 3);
        QDir().mkpath(spanFolder());
        CVSpanChecks::Request request;
        request.queue = tracks.mid(0, 1);
        request.spanLocation = spanFolder();
        CVSpanChecks::RunCheck check = checks.checkBeforeRun(request);
        QCOMPARE(check.outcome, CVSpanChecks::Outcome::Confirm);
        QVERIFY(check.alert.title.startsWith(u"Are you sure you want to span the 1 selected track?\n"_s));
        request.queue = tracks;
        QVERIFY(checks.checkBeforeRun(request).alert.title.contains(u"3 selected tracks?"_s));

        // Missing files and too little space: space first, then the files, then the run.
        QFile::rename(tracks[0]->currentPath(), tracks[0]->currentPath() + u".away"_s);
        request.queueSize = 1e18;
        check = checks.checkBeforeRun(request);
        QCOMPARE(check.outcome, CVSpanChecks::Outcome::NotEnoughSpace);
        QCOMPARE(check.alert.otherButton, u"Span Anyway"_s);
        request.overrideEnoughSpace = true;
        check = checks.checkBeforeRun(request);
        QCOMPARE(check.outcome, CVSpanChecks::Outcome::FilesNotFound);
        QCOMPARE(check.alert.title, u"Files for 1 of the selected tracks could not be found."_s);
        QCOMPARE(check.alert.alternateButton, u"Locate Tracks"_s);
        QCOMPARE(check.missing, QList<CVTrack *> { tracks[0] });
        request.overrideFilesNotFound = true;
        QCOMPARE(checks.checkBeforeRun(request).outcome, CVSpanChecks::Outcome::Confirm);

        // In restore mode neither the location nor the space is asked for.
        request = {};
        request.queue = tracks.mid(1);
        request.restoreMode = true;
        request.queueSize = 1e18;
        QCOMPARE(checks.checkBeforeRun(request).outcome, CVSpanChecks::Outcome::Confirm);
        request.restoreMode = false;
        QCOMPARE(checks.checkBeforeRun(request).alert.title, u"\nYou have not selected a span location."_s);
        request.spanLocation = m_env->filePath(u"nowhere"_s);
        QCOMPARE(checks.checkBeforeRun(request).alert.title, u"\nSelected span location cannot be found."_s);
        request.queue.clear();
        QCOMPARE(checks.checkBeforeRun(request).alert.title, u"\nYou have not selected any tracks."_s);

        // Advice about a chosen location.
        const QString media = *s.library.iTunesMediaPath();
        QCOMPARE(checks.checkSpanLocation(media + u"/Music"_s, {}, media, u"Computer"_s).advice,
            CVSpanChecks::Advice::InsideMediaFolder);
        QCOMPARE(checks.checkSpanLocation(media, {}, media, u"Computer"_s).advice, CVSpanChecks::Advice::None);
        QCOMPARE(
            checks.checkSpanLocation(spanFolder(), { m_env->filePath(u"Span Drive"_s) }, media, u"Computer"_s).advice,
            CVSpanChecks::Advice::PreviouslyUsed);
        QCOMPARE(checks.checkSpanLocation(spanFolder(), { spanFolder() }, media, u"Computer"_s).advice,
            CVSpanChecks::Advice::None);
        QCOMPARE(checks.checkSpanLocation(m_env->filePath(u"nowhere"_s), {}, media, u"Computer"_s).advice,
            CVSpanChecks::Advice::Unusable);
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
    CVGeneratedLibrary m_library;
};

QTEST_GUILESS_MAIN(TestSpanRun)
#include "tst_spanrun.moc"
