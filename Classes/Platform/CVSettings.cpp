#include "Platform/CVSettings.h"

#include <QDir>
#include <QStandardPaths>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

using Key = CVSettingsKey;
using Type = CVSettings::Type;

const QStringList &defaultFilterPathOrder()
{
    static const QStringList order { u"Search"_s, u"Span Filter"_s, u"Media Type"_s, u"Playlist"_s, u"Location"_s };
    return order;
}

const std::array<CVSettings::KeyInfo, std::size_t(Key::Count)> &table()
{
    static const std::array<CVSettings::KeyInfo, std::size_t(Key::Count)> keys { {
        { Key::FirstRun, u"CVFirstRun"_s, Type::Bool, true },
        { Key::DidCrashLastRun, u"CVDidCrashLastRun"_s, Type::Bool, true },
        { Key::BrowserTopFrameHeight, u"CVBrowserTopFrameHeight"_s, Type::Real, 177.0 },
        { Key::BrowserTopFrameHeightBeforeSquishing, u"CVBrowserTopFrameHeightBeforeSquishing"_s, Type::Real, 177.0 },
        { Key::BrowserLeftFrameWidth, u"CVBrowserLeftFrameWidth"_s, Type::Real, 300.0 },
        { Key::BrowserLeftFrameWidthBeforeSquishing, u"CVBrowserLeftFrameWidthBeforeSquishing"_s, Type::Real, 300.0 },
        { Key::PlaylistsLeftFrameWidth, u"CVPlaylistsLeftFrameWidth"_s, Type::Real, 250.0 },
        { Key::PlaylistsLeftFrameWidthBeforeSquishing, u"CVPlaylistsLeftFrameWidthBeforeSquishing"_s, Type::Real,
            250.0 },
        { Key::PlaylistsAreHidden, u"CVPlaylistsAreHidden"_s, Type::Bool, false },
        { Key::LocationsRightFrameWidth, u"CVLocationsRightFrameWidth"_s, Type::Real, 250.0 },
        { Key::LocationsRightFrameWidthBeforeSquishing, u"CVLocationsRightFrameWidthBeforeSquishing"_s, Type::Real,
            250.0 },
        { Key::LocationsAreHidden, u"CVLocationsAreHidden"_s, Type::Bool, false },
        { Key::SUScheduledCheckInterval, u"SUScheduledCheckInterval"_s, Type::Integer, 86400 },
        { Key::SearchFields, u"CVSearchFields"_s, Type::StringList,
            QStringList { u"Genre"_s, u"Artist"_s, u"Album"_s, u"Name"_s } },
        { Key::DefaultBrowserMedia, u"CVDefaultBrowserMedia"_s, Type::String, u"Music"_s },
        { Key::RememberLastBrowserMedia, u"CVRememberLastBrowserMedia"_s, Type::Bool, false },
        { Key::GroupCompilationsInBrowser, u"CVGroupCompilationsInBrowser"_s, Type::Bool, true },
        { Key::UseAlbumArtistsInBrowser, u"CVUseAlbumArtistsInBrowser"_s, Type::Bool, true },
        { Key::ColumnBrowserOnTop, u"CVColumnBrowserOnTop"_s, Type::Bool, true },
        { Key::CubeAnimateWindow, u"CVCubeAnimateWindow"_s, Type::Bool, true },
        { Key::PlaySpanQueueDropSounds, u"CVPlaySpanQueueDropSounds"_s, Type::Bool, true },
        { Key::AutosaveSpanningQueue, u"CVAutosaveSpanningQueue"_s, Type::Bool, true },
        { Key::AutosaveSpanLocation, u"CVAutosaveSpanLocation"_s, Type::Bool, true },
        { Key::ClearSpanLocationAfterSpan, u"CVClearSpanLocationAfterSpan"_s, Type::Bool, true },
        { Key::FullSpanReattempts, u"CVFullSpanReattempts"_s, Type::Integer, 2 },
        { Key::FilterPathOrder, u"CVFilterPathOrder"_s, Type::StringList, defaultFilterPathOrder() },
        // The name "/" is shown under; Linux has no volume name for it.
        { Key::StartupDriveName, u"CVStartupDriveName"_s, Type::String, u"Computer"_s },
        // Names of spanned files follow Windows rules: "auto" where the drive wants them, "always", "never".
        { Key::WindowsFileNames, u"CVWindowsFileNames"_s, Type::String, u"auto"_s },
        // Whose library is read and told new locations: "auto" (an iTunes-format library file, or
        // a player on the session bus, else Rhythmbox's, else Strawberry's), "rhythmbox",
        // "strawberry", "itunes-file", "dbus".
        { Key::Player, u"Player"_s, Type::String, u"auto"_s },
        // A player that a run quits before it copies (Strawberry) is started again afterwards when
        // it was playing; with this, also when it was only running.
        { Key::RelaunchPlayerAfterRun, u"CVRelaunchPlayerAfterRun"_s, Type::Bool, false },
        { Key::SUEnableAutomaticChecks, u"SUEnableAutomaticChecks"_s, Type::Bool, true },
        // Unset, the feed built into the program is used.
        { Key::SUFeedURL, u"SUFeedURL"_s, Type::String, {} },
        { Key::SULastCheckTime, u"SULastCheckTime"_s, Type::Integer, {} },
        // Flushed at once, so that a run in progress is known after a crash.
        { Key::IsSpanning, u"CVIsSpanning"_s, Type::Bool, false },
        { Key::LastSpanLocation, u"CVLastSpanLocation"_s, Type::String, {} },
        { Key::LastTracksSpanned, u"CVLastTracksSpanned"_s, Type::Map, {} },
        { Key::SavedSpanningQueue, u"CVSavedSpanningQueue"_s, Type::Data, {} },
        { Key::SavedSpanLocation, u"CVSavedSpanLocation"_s, Type::String, {} },
        { Key::SpanLocationHistory, u"CVSpanLocationHistory"_s, Type::StringList, {} },
        { Key::ExpandedLocations, u"CVExpandedLocations"_s, Type::Map, {} },
        { Key::CollapsedPlaylistFolders, u"CVCollapsedPlaylistFolders"_s, Type::Map, {} },
        { Key::TrackListSmartColumnPosition, u"CVTrackListSmartColumnPosition"_s, Type::Integer, {} },
        { Key::TrackListSmartColumnWidth, u"CVTrackListSmartColumnWidth"_s, Type::Real, {} },
        { Key::TrackListSmartColumnWidthBeforeSquishing, u"CVTrackListSmartColumnWidthBeforeSquishing"_s, Type::Real,
            {} },
        { Key::VersionLastRun, u"CVVersionLastRun"_s, Type::String, {} },
        { Key::UserClickedDonate, u"CVUserClickedDonate"_s, Type::Bool, {} },
        // Window frames as "x y width height".
        { Key::MainWindowFrame, u"NSWindow Frame CVMainWindow"_s, Type::String, {} },
        { Key::AboutWindowFrame, u"NSWindow Frame CVAboutWindow"_s, Type::String, {} },
        { Key::HelpWindowFrame, u"NSWindow Frame CVHelpWindow"_s, Type::String, {} },
        { Key::ColumnDisplayOptionsWindowFrame, u"NSWindow Frame CVColumnDisplayOptionsWindow"_s, Type::String, {} },
        { Key::TrackInformationWindowFrame, u"NSWindow Frame CVTrackInformationWindow"_s, Type::String, {} },
        { Key::PlaylistTrackListColumns, u"NSTableView Columns CVPlaylistTrackListTable"_s, Type::StringList, {} },
        { Key::PlaylistTrackListHiddenColumns, u"NSTableView Hidden Columns CVPlaylistTrackListTable"_s,
            Type::StringList, {} },
        { Key::PlaylistTrackListSortOrdering, u"NSTableView Sort Ordering CVPlaylistTrackListTable"_s, Type::String,
            {} },
    } };
    return keys;
}

// A key read as another type than its own is a slip at the call site; debug builds stop on it.
void checkType([[maybe_unused]] Key key, [[maybe_unused]] std::initializer_list<Type> readable)
{
    Q_ASSERT_X(std::find(readable.begin(), readable.end(), CVSettings::info(key).type) != readable.end(), "CVSettings",
        "a key is read as another type than its own");
}

} // namespace

std::span<const CVSettings::KeyInfo> CVSettings::keyTable()
{
    return table();
}

bool CVSettings::toBool(const QVariant &v)
{
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().trimmed().toLower();
        return s == u"true"_s || s == u"yes"_s || (!s.isEmpty() && s.toDouble() != 0);
    }
    return v.toBool();
}

qint64 CVSettings::toInteger(const QVariant &v)
{
    bool ok = false;
    const qint64 i = v.toLongLong(&ok);
    if (ok)
        return i;
    return qint64(v.toDouble());
}

QString CVSettings::defaultFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/Corvana/Corvana.conf"_s;
}

CVSettings::CVSettings(const QString &filePath, QObject *parent)
    : QObject(parent)
    , m_settings(std::make_unique<QSettings>(filePath, QSettings::IniFormat))
{
}

CVSettings::~CVSettings() = default;

void CVSettings::applyLaunchRepairs()
{
    if (stringListValue(Key::FilterPathOrder).size() != 5)
        setValue(Key::FilterPathOrder, defaultFilterPathOrder());

    // 155, not the default 177: a repaired browser opens a little lower than a new one.
    for (const Key key : { Key::BrowserTopFrameHeight, Key::BrowserTopFrameHeightBeforeSquishing })
        if (realValue(key) <= 0)
            setValue(key, 155.0);
    for (const Key key : { Key::BrowserLeftFrameWidth, Key::BrowserLeftFrameWidthBeforeSquishing })
        if (realValue(key) <= 0)
            setValue(key, 300.0);
    for (const Key key : { Key::PlaylistsLeftFrameWidth, Key::PlaylistsLeftFrameWidthBeforeSquishing,
             Key::LocationsRightFrameWidth, Key::LocationsRightFrameWidthBeforeSquishing })
        if (realValue(key) < 0)
            setValue(key, 250.0);

    // Keys of earlier versions, which nothing reads any more.
    if (m_settings->contains(u"NSTableView Columns CVLibraryBrowserTrackListTable"_s)) {
        for (const QString &name : { u"NSWindow Frame CVItemInformationWindow"_s,
                 u"CVRememberSearchWhenFilterChanges"_s, u"CVAvoidEmptyLists"_s, u"CVReattemptDependentTracks"_s,
                 u"NSTableView Columns CVLibraryBrowserTrackListTable"_s,
                 u"NSTableView Hidden Columns CVLibraryBrowserTrackListTable"_s,
                 u"NSTableView Sort Ordering CVLibraryBrowserTrackListTable"_s })
            removeObsolete(name);
        remove(Key::ColumnDisplayOptionsWindowFrame);
        setValue(Key::TrackListSmartColumnPosition, 0);
    }
    if (m_settings->contains(u"NSTableView Columns CVSpanningQueueTable"_s)) {
        for (const Key key :
            { Key::PlaylistTrackListColumns, Key::PlaylistTrackListHiddenColumns, Key::PlaylistTrackListSortOrdering })
            remove(key);
        for (const QString &name :
            { u"NSTableView Columns CVSpanningQueueTable"_s, u"NSTableView Hidden Columns CVSpanningQueueTable"_s,
                u"NSTableView Sort Ordering CVSpanningQueueTable"_s, u"CVMainTopFrameHeight"_s,
                u"CVShowNavigationOnLoad"_s, u"CVRememberLastNavigationDisplayed"_s,
                u"CVRememberSearchOnNavigationSwitch"_s, u"CVPlaylistLeftFrameWidth"_s })
            removeObsolete(name);
    }
}

void CVSettings::removeObsolete(const QString &name)
{
    m_settings->remove(name);
}

bool CVSettings::contains(Key key) const
{
    return m_settings->contains(name(key));
}

QStringList CVSettings::storedKeys() const
{
    return m_settings->allKeys();
}

QVariant CVSettings::value(Key key) const
{
    if (const auto it = m_transient.constFind(key); it != m_transient.cend())
        return *it;
    const QString text = name(key);
    if (m_settings->contains(text))
        return m_settings->value(text);
    return info(key).defaultValue;
}

bool CVSettings::boolValue(Key key) const
{
    checkType(key, { Type::Bool });
    return toBool(value(key));
}

qint64 CVSettings::integerValue(Key key) const
{
    checkType(key, { Type::Integer });
    return toInteger(value(key));
}

double CVSettings::realValue(Key key) const
{
    checkType(key, { Type::Real, Type::Integer });
    return value(key).toDouble();
}

QString CVSettings::stringValue(Key key) const
{
    checkType(key, { Type::String });
    return value(key).toString();
}

QStringList CVSettings::stringListValue(Key key) const
{
    checkType(key, { Type::StringList });
    // A stored empty list reads back invalid, a one-element list as a plain text.
    return value(key).toStringList();
}

QVariantMap CVSettings::mapValue(Key key) const
{
    checkType(key, { Type::Map });
    return value(key).toMap();
}

QByteArray CVSettings::dataValue(Key key) const
{
    checkType(key, { Type::Data });
    return value(key).toByteArray();
}

void CVSettings::setValue(Key key, const QVariant &v)
{
    const QString text = name(key);
    const bool had = m_settings->contains(text);
    const QVariant before = value(key);
    m_settings->setValue(text, v);
    if (!had || before != v)
        Q_EMIT valueChanged(key);
}

void CVSettings::setTransientValue(Key key, const QVariant &v)
{
    m_transient.insert(key, v);
}

void CVSettings::remove(Key key)
{
    const QString text = name(key);
    if (!m_settings->contains(text))
        return;
    m_settings->remove(text);
    Q_EMIT valueChanged(key);
}

void CVSettings::synchronize()
{
    m_settings->sync();
}

QString CVSettings::filePath() const
{
    return m_settings->fileName();
}
