#include "Platform/CVSettings.h"

#include <QDir>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

const QStringList &defaultFilterPathOrder()
{
    static const QStringList order { u"Search"_s, u"Span Filter"_s, u"Media Type"_s, u"Playlist"_s, u"Location"_s };
    return order;
}

} // namespace

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

void CVSettings::registerStandardDefaults()
{
    registerDefaults({
        { u"CVFirstRun"_s, true },
        { u"CVDidCrashLastRun"_s, true },
        { u"CVBrowserTopFrameHeight"_s, 177.0 },
        { u"CVBrowserTopFrameHeightBeforeSquishing"_s, 177.0 },
        { u"CVBrowserLeftFrameWidth"_s, 300.0 },
        { u"CVBrowserLeftFrameWidthBeforeSquishing"_s, 300.0 },
        { u"CVPlaylistsLeftFrameWidth"_s, 250.0 },
        { u"CVPlaylistsLeftFrameWidthBeforeSquishing"_s, 250.0 },
        { u"CVPlaylistsAreHidden"_s, false },
        { u"CVLocationsRightFrameWidth"_s, 250.0 },
        { u"CVLocationsRightFrameWidthBeforeSquishing"_s, 250.0 },
        { u"CVLocationsAreHidden"_s, false },
        { u"SUScheduledCheckInterval"_s, 86400 },
        { u"CVSearchFields"_s, QStringList { u"Genre"_s, u"Artist"_s, u"Album"_s, u"Name"_s } },
        { u"CVDefaultBrowserMedia"_s, u"Music"_s },
        { u"CVRememberLastBrowserMedia"_s, false },
        { u"CVGroupCompilationsInBrowser"_s, true },
        { u"CVUseAlbumArtistsInBrowser"_s, true },
        { u"CVColumnBrowserOnTop"_s, true },
        { u"CVCubeAnimateWindow"_s, true },
        { u"CVPlaySpanQueueDropSounds"_s, true },
        { u"CVAutosaveSpanningQueue"_s, true },
        { u"CVAutosaveSpanLocation"_s, true },
        { u"CVClearSpanLocationAfterSpan"_s, true },
        { u"CVFullSpanReattempts"_s, 2 },
        { u"CVFilterPathOrder"_s, defaultFilterPathOrder() },
        // The name "/" is shown under; Linux has no volume name for it.
        { u"CVStartupDriveName"_s, u"Computer"_s },
        // Names of spanned files follow Windows rules: "auto" where the drive wants them, "always", "never".
        { u"CVWindowsFileNames"_s, u"auto"_s },
        // Whose library is read and told new locations: "auto" (an iTunes-format library file, or
        // a player on the session bus, else Rhythmbox's, else Strawberry's), "rhythmbox",
        // "strawberry", "itunes-file", "dbus".
        { u"Player"_s, u"auto"_s },
        // A player that a run quits before it copies (Strawberry) is started again afterwards when
        // it was playing; with this, also when it was only running.
        { u"CVRelaunchPlayerAfterRun"_s, false },
    });
}

void CVSettings::registerDefaults(const QVariantMap &defaults)
{
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
        m_defaults.insert(it.key(), it.value());
}

void CVSettings::applyLaunchRepairs()
{
    if (stringListValue(u"CVFilterPathOrder"_s).size() != 5)
        setValue(u"CVFilterPathOrder"_s, defaultFilterPathOrder());

    // 155, not the registered 177: a repaired browser opens a little lower than a new one.
    for (const QString &key : { u"CVBrowserTopFrameHeight"_s, u"CVBrowserTopFrameHeightBeforeSquishing"_s })
        if (realValue(key) <= 0)
            setValue(key, 155.0);
    for (const QString &key : { u"CVBrowserLeftFrameWidth"_s, u"CVBrowserLeftFrameWidthBeforeSquishing"_s })
        if (realValue(key) <= 0)
            setValue(key, 300.0);
    for (const QString &key : { u"CVPlaylistsLeftFrameWidth"_s, u"CVPlaylistsLeftFrameWidthBeforeSquishing"_s,
             u"CVLocationsRightFrameWidth"_s, u"CVLocationsRightFrameWidthBeforeSquishing"_s })
        if (realValue(key) < 0)
            setValue(key, 250.0);

    if (contains(u"NSTableView Columns CVLibraryBrowserTrackListTable"_s)) {
        for (const QString &key :
            { u"NSWindow Frame CVItemInformationWindow"_s, u"NSWindow Frame CVColumnDisplayOptionsWindow"_s,
                u"CVRememberSearchWhenFilterChanges"_s, u"CVAvoidEmptyLists"_s, u"CVReattemptDependentTracks"_s,
                u"NSTableView Columns CVLibraryBrowserTrackListTable"_s,
                u"NSTableView Hidden Columns CVLibraryBrowserTrackListTable"_s,
                u"NSTableView Sort Ordering CVLibraryBrowserTrackListTable"_s })
            remove(key);
        setValue(u"CVTrackListSmartColumnPosition"_s, 0);
    }
    if (contains(u"NSTableView Columns CVSpanningQueueTable"_s)) {
        for (const QString &table : { u"CVPlaylistTrackListTable"_s, u"CVSpanningQueueTable"_s })
            for (const QString &prefix :
                { u"NSTableView Columns "_s, u"NSTableView Hidden Columns "_s, u"NSTableView Sort Ordering "_s })
                remove(prefix + table);
        for (const QString &key :
            { u"CVMainTopFrameHeight"_s, u"CVShowNavigationOnLoad"_s, u"CVRememberLastNavigationDisplayed"_s,
                u"CVRememberSearchOnNavigationSwitch"_s, u"CVPlaylistLeftFrameWidth"_s })
            remove(key);
    }
}

bool CVSettings::contains(const QString &key) const
{
    return m_settings->contains(key);
}

QStringList CVSettings::storedKeys() const
{
    return m_settings->allKeys();
}

QVariant CVSettings::value(const QString &key) const
{
    if (const auto it = m_transient.constFind(key); it != m_transient.cend())
        return *it;
    if (m_settings->contains(key))
        return m_settings->value(key);
    return m_defaults.value(key);
}

bool CVSettings::boolValue(const QString &key) const
{
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().trimmed().toLower();
        return s == u"true"_s || s == u"yes"_s || (!s.isEmpty() && s.toDouble() != 0);
    }
    return v.toBool();
}

qint64 CVSettings::integerValue(const QString &key) const
{
    const QVariant v = value(key);
    bool ok = false;
    const qint64 i = v.toLongLong(&ok);
    if (ok)
        return i;
    return qint64(v.toDouble());
}

double CVSettings::realValue(const QString &key) const
{
    return value(key).toDouble();
}

QString CVSettings::stringValue(const QString &key) const
{
    return value(key).toString();
}

QStringList CVSettings::stringListValue(const QString &key) const
{
    // A stored empty list reads back invalid, a one-element list as a plain text.
    return value(key).toStringList();
}

QVariantMap CVSettings::mapValue(const QString &key) const
{
    return value(key).toMap();
}

QByteArray CVSettings::dataValue(const QString &key) const
{
    return value(key).toByteArray();
}

void CVSettings::setValue(const QString &key, const QVariant &v)
{
    const bool had = m_settings->contains(key);
    const QVariant before = value(key);
    m_settings->setValue(key, v);
    if (!had || before != v)
        Q_EMIT valueChanged(key);
}

void CVSettings::remove(const QString &key)
{
    if (!m_settings->contains(key))
        return;
    m_settings->remove(key);
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
