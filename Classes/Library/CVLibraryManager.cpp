#include "Library/CVLibraryManager.h"

#include "Library/CVFormatters.h"
#include "Library/CVLibraryHost.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Platform/CVPresenter.h"
#include "Platform/CVSettings.h"
#include "Platform/CVThreadHeap.h"

#include <QDir>
#include <QFileInfo>
#include <QThread>

using namespace Qt::StringLiterals;

CVLibraryManager::CVLibraryManager(CVSettings *settings, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_contents(std::make_unique<CVLibraryContents>())
    , m_selection(settings)
    , m_trees(&m_selection)
{
    m_trees.setPlaylists(&m_contents->playlists);
}

CVLibraryManager::~CVLibraryManager()
{
    finishCompilingAllKeyedLocationInformation();
}

QString CVLibraryManager::chooseLibraryFile(const QString &homePath)
{
    const QFileInfo library(homePath + u"/Music/iTunes/iTunes Library.xml"_s);
    const QFileInfo musicLibrary(homePath + u"/Music/iTunes/iTunes Music Library.xml"_s);
    const bool hasLibrary = library.exists();
    const bool hasMusicLibrary = musicLibrary.exists();
    if (hasLibrary && hasMusicLibrary) {
        // The older name wins only when the newer one is strictly older.
        return library.lastModified() < musicLibrary.lastModified() ? musicLibrary.filePath() : library.filePath();
    }
    if (hasLibrary)
        return library.filePath();
    if (hasMusicLibrary)
        return musicLibrary.filePath();
    return {};
}

QString CVLibraryManager::player() const
{
    if (!m_player.isEmpty())
        return m_player;
    const QString preference = m_settings ? m_settings->stringValue(CVSettingsKey::Player) : QString();
    return CVPlayerLibraryFile::isPlayerName(preference) ? preference
                                                         : QString::fromLatin1(CVPlayerLibraryFile::PlayerAuto);
}

QString CVLibraryManager::findLibraryFile() const
{
    return CVPlayerLibraryFile::chooseLibraryFile(QDir::homePath(), player());
}

CVAlert CVLibraryManager::noLibraryFileAlert()
{
    CVAlert alert;
    alert.title = u"No iTunes Database Found"_s;
    alert.text = u"Corvana can only load a single iTunes database.\nThe readable file must be in its default "
                 "location:\n\n\t~/Music/iTunes/iTunes Library.xml\nor\n\t~/Music/iTunes/iTunes Music Library.xml"_s;
    return alert;
}

CVLibraryManager::LoadResult CVLibraryManager::loadiTunesXMLDatabase()
{
    const bool crashedWhileSpanning = m_host && m_host->crashedWhileSpanningLastRun();
    if (crashedWhileSpanning) {
        if (m_presenter)
            m_presenter->setStatusText(u"Quitting iTunes to Save Updated Library After Crash While Spanning"_s);
        m_host->quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
    }

    finishCompilingAllKeyedLocationInformation();
    m_loadingDatabase = true;
    m_contents = std::make_unique<CVLibraryContents>();
    m_selection.reset({});
    m_displayTitles.clear();
    m_trees.setPlaylists(&m_contents->playlists);
    m_trees.compileAllKeyedLocationInformation();
    m_lastError.clear();
    if (m_presenter)
        m_presenter->setStatusText(u"Reading iTunes Library Information"_s);

    QString file = m_fixedLibraryFile;
    while (file.isEmpty()) {
        file = findLibraryFile();
        if (!file.isEmpty())
            break;
        CVAlert alert = noLibraryFileAlert();
        alert.defaultButton = u"Quit"_s;
        alert.alternateButton = u"Try Again"_s;
        const int answer = m_presenter ? m_presenter->runAlertPanel(alert) : CVPresenter::DefaultReturn;
        if (answer == CVPresenter::DefaultReturn) {
            if (m_host)
                m_host->setQuitNowWithoutSaving(true);
            m_lastError = alert.title;
            m_loadingDatabase = false;
            return LoadResult::Quit;
        }
    }
    m_libraryFile = file;

    CVLibraryFileReader::Options options;
    options.crashedWhileSpanning = crashedWhileSpanning;
    if (crashedWhileSpanning && m_settings) {
        const QVariantMap last = m_settings->mapValue(CVSettingsKey::LastTracksSpanned);
        for (auto it = last.cbegin(); it != last.cend(); ++it)
            options.lastTracksSpanned.insert(it.key(), it.value().toString());
    }
    if (m_presenter) {
        m_presenter->setProgressIndeterminate(false);
        m_presenter->setStatusText(u"Loading iTunes Library Information into Corvana"_s);
        options.progress = [presenter = m_presenter](
                               qint64 done, qint64 total) { presenter->setProgress(double(total), double(done)); };
    }

    // A load thread reads the first part of the file into its own heaps.
    CVThreadHeap::Reservation heap;
    if (QThread::currentThread() != thread())
        heap = CVThreadHeap::growAhead(std::size_t(QFileInfo(file).size()));
    auto contents = std::make_unique<CVLibraryContents>();
    if (!CVPlayerLibraryFile::read(file, *contents, std::move(options), &m_lastError)) {
        if (m_presenter)
            m_presenter->presentError(u"The iTunes library could not be read."_s,
                u"%1\n\n%2"_s.arg(QDir::toNativeSeparators(file), m_lastError));
        m_loadingDatabase = false;
        return LoadResult::Failed;
    }

    m_contents = std::move(contents);
    // "Music Folder" missing leaves the media folder as it was.
    if (m_contents->mediaPath)
        m_iTunesMediaPath = m_contents->mediaPath;
    std::vector<CVTrack *> tracks;
    tracks.reserve(m_contents->tracks.size());
    for (CVTrack &track : m_contents->tracks)
        tracks.push_back(&track);
    m_selection.reset(std::move(tracks));
    m_trees.setPlaylists(&m_contents->playlists);
    m_loadingDatabase = false;
    return LoadResult::Loaded;
}

void CVLibraryManager::prepareToCompileLocations()
{
    finishCompilingAllKeyedLocationInformation();
    if (m_presenter) {
        m_presenter->setProgressIndeterminate(false);
        m_presenter->setStatusText(u"Compiling Location Information"_s);
    }
}

void CVLibraryManager::compileAllKeyedLocationInformation()
{
    prepareToCompileLocations();
    CVPresenter *presenter = m_presenter;
    m_trees.compileAllKeyedLocationInformation([presenter](double maximum, double value) {
        if (presenter)
            presenter->setProgress(maximum, value);
    });
}

void CVLibraryManager::beginCompilingAllKeyedLocationInformation()
{
    prepareToCompileLocations();
    m_reportLocationProgress = m_presenter != nullptr;
    m_locationThread = std::thread([this] {
        // About 400 bytes a track of nodes, keys and lower-case paths.
        const CVThreadHeap::Reservation heap = CVThreadHeap::growAhead(m_selection.allTracks()->tracks.size() * 400);
        m_trees.compileAllKeyedLocationInformation([this](double maximum, double value) {
            // Under the lock: a value sent after the load has taken the bar over would undo it.
            const std::lock_guard lock(m_locationProgressLock);
            if (m_reportLocationProgress)
                m_presenter->setProgress(maximum, value);
        });
    });
}

void CVLibraryManager::endLocationProgress()
{
    const std::lock_guard lock(m_locationProgressLock);
    m_reportLocationProgress = false;
}

void CVLibraryManager::finishCompilingAllKeyedLocationInformation()
{
    if (m_locationThread.joinable())
        m_locationThread.join();
    endLocationProgress();
}

QString CVLibraryManager::humanReadableSizeFromBytes(double bytes)
{
    return CVFormatters::humanReadableSizeFromBytes(bytes);
}

QString CVLibraryManager::formatSampleRate(double hertz)
{
    return CVFormatters::formatSampleRate(hertz);
}

QString CVLibraryManager::humanReadableTimeFromMilliseconds(double milliseconds, bool roundOffTime)
{
    return CVFormatters::humanReadableTimeFromMilliseconds(milliseconds, roundOffTime);
}

QString CVLibraryManager::formatDate(qint64 secondsSinceEpoch)
{
    return CVFormatters::formatDate(secondsSinceEpoch);
}

QString CVLibraryManager::customSortStringForKey(const QString &key, const QVariantMap &fileTrack)
{
    const QVariant sortValue = fileTrack.value(u"Sort "_s + key);
    const QVariant value = fileTrack.value(key);
    return CVFormatters::customSortString(
        sortValue.isValid() ? sortValue.toString() : QString(), value.isValid() ? value.toString() : QString());
}

QString CVLibraryManager::createDisplayTitleForPath(const QString &path) const
{
    const QString startup = m_settings ? m_settings->stringValue(CVSettingsKey::StartupDriveName) : u"Computer"_s;
    return CVFormatters::createDisplayTitleForPath(path, startup);
}
