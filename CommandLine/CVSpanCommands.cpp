#include "CVSpanCommands.h"

#include "CVCommandLineHost.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpanChecks.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"
#include "Platform/CVVolumes.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kStatusAllDone = 0;
constexpr int kStatusSomeNotDone = 1;
constexpr int kStatusError = 2;

void printAlert(const CVAlert &alert)
{
    std::fprintf(stderr, "%s\n", qUtf8Printable(alert.title.trimmed()));
    if (!alert.text.isEmpty())
        std::fprintf(stderr, "%s\n", qUtf8Printable(alert.text));
}

QString iconWord(CVResultIcon icon)
{
    switch (icon) {
    case CVResultIcon::FullSuccess:
        return u"done"_s;
    case CVResultIcon::LinkSuccess:
        return u"linked"_s;
    case CVResultIcon::Skip:
        return u"skipped"_s;
    default:
        return u"failed"_s;
    }
}

// The window's order of work: artist, album, track number, name.
QList<CVTrack *> sortedQueue(const CVTrackList &selection)
{
    QList<CVTrack *> queue(selection->tracks.cbegin(), selection->tracks.cend());
    std::stable_sort(queue.begin(), queue.end(), [](const CVTrack *a, const CVTrack *b) {
        const auto key = [](const CVTrack *t) {
            return std::make_tuple(t->text(CVAttr::SortArtist), t->text(CVAttr::SortAlbum),
                t->has(CVAttr::TrackNumber) ? t->integer(CVAttr::TrackNumber) : 0, t->text(CVAttr::SortName));
        };
        return key(a) < key(b);
    });
    return queue;
}

QString duration(double seconds)
{
    const qint64 s = qint64(seconds + 0.5);
    if (s >= 3600)
        return u"%1 h %2 min"_s.arg(s / 3600).arg((s % 3600) / 60);
    if (s >= 60)
        return u"%1 min %2 s"_s.arg(s / 60).arg(s % 60);
    return u"%1 s"_s.arg(s);
}

} // namespace

CVSpanCommands::CVSpanCommands(
    CVLibraryManager &library, CVSettings &settings, CVMediaSpanner &spanner, CVCommandLineHost &host, Options options)
    : m_library(library)
    , m_settings(settings)
    , m_spanner(spanner)
    , m_host(host)
    , m_options(std::move(options))
    , m_terminal(::isatty(STDERR_FILENO) == 1)
{
}

bool CVSpanCommands::checkLocation()
{
    QString location = m_options.to;
    if (!location.isEmpty())
        location = QDir::cleanPath(QFileInfo(location).absoluteFilePath());
    // The folders that hold drives are never a span location.
    if (location == u"/Network"_s || location == u"/Volumes"_s || CVVolumes::isDriveContainer(location))
        location.clear();
    m_host.setSpanLocation(location);
    if (location.isEmpty() || !QFileInfo::exists(location))
        return true; // the run's checks say what is wrong
    const CVSpanChecks checks(m_spanner, m_library);
    const CVSpanChecks::LocationCheck advice = checks.checkSpanLocation(location, m_library.getBaseSpanPaths(),
        m_library.iTunesMediaPath().value_or(QString()), m_settings.stringValue(CVSettingsKey::StartupDriveName));
    if (advice.advice == CVSpanChecks::Advice::None)
        return true;
    printAlert(advice.alert);
    if (advice.advice == CVSpanChecks::Advice::Unusable)
        return false;
    std::fprintf(stderr, "Keeping '%s'.\n", qUtf8Printable(m_library.createDisplayTitleForPath(location)));
    return true;
}

bool CVSpanCommands::checkRunCanStart()
{
    const QString refusal = m_spanner.checkRunCanStart();
    if (refusal.isEmpty())
        return true;
    std::fprintf(stderr, "%s\n", qUtf8Printable(refusal));
    if (::geteuid() == 0 && !m_spanner.allowRoot())
        std::fprintf(stderr, "(--allow-root runs it all the same.)\n");
    return false;
}

bool CVSpanCommands::confirm(const QString &question, const QString &verb)
{
    std::fprintf(stderr, "%s\n", qUtf8Printable(question));
    if (m_options.yes)
        return true;
    if (::isatty(STDIN_FILENO) != 1) {
        std::fprintf(stderr, "Not confirmed: answer on a terminal or give --yes.\n");
        return false;
    }
    std::fprintf(stderr, "%s? [y/N] ", qUtf8Printable(verb));
    std::fflush(stderr);
    char answer[16] = {};
    if (!std::fgets(answer, sizeof answer, stdin))
        return false;
    return answer[0] == 'y' || answer[0] == 'Y';
}

int CVSpanCommands::dryRun(const QList<CVTrack *> &queue)
{
    for (const CVTrack *track : queue) {
        const QString current = m_spanner.getCurrentPathForItem(track);
        const QString dest
            = m_spanner.createNewPathForItem(track, QFileInfo(m_spanner.getITunesPathForItem(track)).fileName());
        const bool known = track->flag(CVAttr::ItemIsSpanned) || track->flag(CVAttr::ItemIsRestored);
        QString action;
        if (!QFileInfo::exists(current) && !QFileInfo::exists(dest))
            action = u"fails: the file cannot be found"_s;
        else if (known && QFileInfo::exists(dest)
            && dest.compare(track->text(CVAttr::SpanLocation), Qt::CaseInsensitive) == 0)
            action = u"skipped: already there"_s;
        else if (QFileInfo::exists(dest))
            action = u"no copy: the file is at the destination already; the player is pointed there"_s;
        else
            action = u"copy, point the player at the copy, then the original goes to the Trash"_s;
        std::printf("%s\n  from %s\n  to   %s\n  %s, %s\n", qUtf8Printable(m_spanner.createDisplayTitleForItem(track)),
            qUtf8Printable(current), qUtf8Printable(dest),
            qUtf8Printable(CVLibraryManager::humanReadableSizeFromBytes(double(track->real(CVAttr::Size)))),
            qUtf8Printable(action));
    }
    return kStatusAllDone;
}

void CVSpanCommands::connectProgress(qint64 totalBytes, int tracks)
{
    m_clock.start();
    m_bytesDone = 0;
    QObject::connect(&m_spanner, &CVMediaSpanner::fileCopied, [this](qint64 bytes) { m_bytesDone += bytes; });
    QObject::connect(&m_spanner, &CVMediaSpanner::headerChanged, [this](const QString &text) {
        if (m_terminal)
            std::fprintf(stderr, "\r\033[K");
        std::fprintf(m_terminal ? stderr : stdout, "%s\n", qUtf8Printable(text));
    });
    if (m_terminal) {
        // Log lines share the terminal with the progress line: clear it before each.
        CVLog::setSink([](const QString &line) { std::fprintf(stderr, "\r\033[K%s\n", qUtf8Printable(line)); });
        QObject::connect(&m_spanner, &CVMediaSpanner::progressChanged, [this](double value, double maximum, bool) {
            m_step = value;
            m_steps = maximum;
        });
        QObject::connect(
            &m_spanner, &CVMediaSpanner::taskLineChanged, [this, totalBytes, tracks](const QString &text, int) {
                const double seconds = double(m_clock.elapsed()) / 1000.0;
                const double rate = seconds > 0.5 ? double(m_bytesDone) / seconds : 0;
                QString line = u"%1 of %2"_s.arg(CVLibraryManager::humanReadableSizeFromBytes(double(m_bytesDone)),
                    CVLibraryManager::humanReadableSizeFromBytes(double(totalBytes)));
                if (rate > 0) {
                    line += u" · %1/s · %2 left"_s.arg(CVLibraryManager::humanReadableSizeFromBytes(rate),
                        duration(double(totalBytes - m_bytesDone) / rate));
                }
                // A run counts two steps a track; verification and the rest count one.
                const double perTrack = m_steps >= 2.0 * tracks && tracks > 0 ? 2.0 : 1.0;
                const int current = qBound(0, int((m_step + perTrack - 1) / perTrack), tracks);
                line += u" · track %1 of %2 · "_s.arg(current).arg(tracks)
                    + QString(text).replace(u'\t', u' ').trimmed();
                std::fprintf(stderr, "\r\033[K%s", qUtf8Printable(line.left(200)));
                std::fflush(stderr);
            });
    } else {
        QObject::connect(&m_spanner, &CVMediaSpanner::taskLineChanged, [](const QString &text, int) {
            const QString line = QString(text).replace(u'\t', u' ').trimmed();
            if (!line.isEmpty())
                std::printf("%s\n", qUtf8Printable(line));
            std::fflush(stdout);
        });
    }
}

int CVSpanCommands::printResults()
{
    if (m_terminal)
        std::fprintf(stderr, "\r\033[K");
    const CVRunResults &results = m_spanner.lastResults();
    std::printf("%s\n%s\n", qUtf8Printable(results.headline), qUtf8Printable(results.tally));
    for (const CVShownResultRow &row : results.rows)
        std::printf("%-8s %s: %s\n", qUtf8Printable(iconWord(row.icon)), qUtf8Printable(row.title),
            qUtf8Printable(row.message));
    std::printf("%s\n",
        qUtf8Printable(
            CVMediaSpanner::trashSummaryText(m_spanner.trashedFileCount(), m_spanner.trashedFolderCount(), false)));
    // Done when every track is where it was asked to be, those that were there already included.
    return results.allInPlace ? kStatusAllDone : kStatusSomeNotDone;
}

int CVSpanCommands::span(const CVTrackList &selection, bool restore)
{
    m_host.setRestoreMode(restore);
    if (!restore && !checkLocation())
        return kStatusError;
    QList<CVTrack *> queue = sortedQueue(selection);
    if (m_host.crashedWhileSpanningLastRun()) {
        // As the window puts them back in its queue: the interrupted run's tracks are part of
        // this one, whatever state the history gives them now, so that it finishes their moves.
        const QVariantMap interrupted = m_settings.mapValue(CVSettingsKey::LastTracksSpanned);
        const QSet<CVTrack *> chosen(queue.cbegin(), queue.cend());
        int added = 0;
        for (CVTrack *t : m_library.allTracks()) {
            if (!chosen.contains(t) && interrupted.contains(t->text(CVAttr::PersistentID))) {
                queue.append(t);
                ++added;
            }
        }
        if (added > 0) {
            std::fprintf(stderr, "%d track%s of the interrupted run %s added to this run.\n", added,
                added == 1 ? "" : "s", added == 1 ? "is" : "are");
            auto list = std::make_shared<CVTrackListData>();
            list->tracks.assign(queue.cbegin(), queue.cend());
            queue = sortedQueue(list);
        }
    }
    double queueSize = 0;
    for (const CVTrack *t : queue)
        queueSize += double(t->real(CVAttr::Size));
    m_spanner.loadPreviouslySpannedTracks();

    const CVSpanChecks checks(m_spanner, m_library);
    CVSpanChecks::Request request;
    request.queue = queue;
    request.restoreMode = restore;
    request.spanLocation = m_host.spanLocation();
    request.queueSize = queueSize;
    CVSpanChecks::RunCheck check;
    for (;;) {
        check = checks.checkBeforeRun(request);
        if (check.outcome == CVSpanChecks::Outcome::Confirm)
            break;
        printAlert(check.alert);
        if (!check.hasAnywayButton() || !m_options.anyway) {
            if (check.hasAnywayButton())
                std::fprintf(stderr, "(--anyway answers \"%s\".)\n", qUtf8Printable(check.alert.otherButton));
            return kStatusError;
        }
        std::fprintf(stderr, "%s.\n", qUtf8Printable(check.alert.otherButton));
        // Each override lasts one more pass of the checks, as in the window.
        if (check.outcome == CVSpanChecks::Outcome::NotEnoughSpace)
            request.overrideEnoughSpace = true;
        else
            request.overrideFilesNotFound = true;
    }
    if (m_options.dryRun)
        return dryRun(queue);
    if (!checkRunCanStart())
        return kStatusError;
    if (!confirm(check.alert.title, check.alert.defaultButton))
        return kStatusError;
    connectProgress(qint64(queueSize), int(queue.size()));
    m_spanner.spanTracks(queue);
    return printResults();
}

int CVSpanCommands::updateDependent()
{
    const CVTrackList dependent = m_library.selectPredicate(CVPredicate::fromText(u"( SymSpan == 1 )"_s));
    if (dependent->tracks.empty()) {
        std::printf("No dependently spanned tracks.\n");
        return kStatusAllDone;
    }
    qint64 bytes = 0;
    for (const CVTrack *t : dependent->tracks)
        bytes += qint64(t->real(CVAttr::Size));
    if (m_options.dryRun) {
        for (const CVTrack *t : dependent->tracks)
            std::printf("%s\n  player to %s\n", qUtf8Printable(m_spanner.createDisplayTitleForItem(t)),
                qUtf8Printable(t->text(CVAttr::SpanLocation)));
        return kStatusAllDone;
    }
    if (!checkRunCanStart())
        return kStatusError;
    const int count = int(dependent->tracks.size());
    if (!confirm(
            u"Update %1 dependently spanned track%2, so that the player finds them at their span location?"_s.arg(count)
                .arg(count == 1 ? QString() : u"s"_s),
            u"Update"_s))
        return kStatusError;
    connectProgress(bytes, count);
    m_spanner.updateDependentTracks();
    return printResults();
}

int CVSpanCommands::locate(const CVTrackList &selection)
{
    const QList<CVTrack *> queue = sortedQueue(selection);
    if (queue.isEmpty()) {
        std::fprintf(stderr, "You have not selected any tracks.\n");
        return kStatusError;
    }
    connectProgress(0, int(queue.size()));
    m_spanner.refreshTracks(queue);
    std::printf("Asked the player to locate %lld track%s; the library was read again.\n", qlonglong(queue.size()),
        queue.size() == 1 ? "" : "s");
    return kStatusAllDone;
}
