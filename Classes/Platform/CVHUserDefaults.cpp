#include "Platform/CVHUserDefaults.h"

#include "Platform/CVSettings.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

#include <array>

using namespace Qt::StringLiterals;

namespace {

// QSettings hands scalars back as text after a restart: compare what would be written.
bool sameStoredValue(const QVariant &stored, const QVariant &value)
{
    if (stored.canConvert<QString>() && value.canConvert<QString>() && stored.typeId() != QMetaType::QStringList
        && value.typeId() != QMetaType::QStringList)
        return stored.toString() == value.toString();
    return stored == value;
}

} // namespace

CVHUserDefaults &CVHUserDefaults::standardUserDefaults()
{
    static CVHUserDefaults defaults;
    return defaults;
}

std::span<const CVHUserDefaults::KeyInfo> CVHUserDefaults::keyTable()
{
    using Key = CVHSettingsKey;
    static const std::array<KeyInfo, std::size_t(Key::Count)> keys { {
        { Key::ShowInMenubar, u"CVHShowInMenubar"_s, 1 },
        { Key::AllowedToAlwaysRun, u"CVHAllowedToAlwaysRun"_s, 0 },
        { Key::LoginItemAlertSupress, u"CVHLoginItemAlertSupress"_s, false },
        { Key::NotNecessaryAlertSupress, u"CVHNotNecessaryAlertSupress"_s, false },
        { Key::TracksUnavailableWhenITunesLaunchesAlertSupress, u"CVHTracksUnavailableWhenITunesLaunchesAlertSupress"_s,
            false },
        { Key::TracksUnavailableWhenDrivesUnmountAlertSupress, u"CVHTracksUnavailableWhenDrivesUnmountAlertSupress"_s,
            true },
        { Key::TracksUnavailableWhenFilesMissingAlertSupress, u"CVHTracksUnavailableWhenFilesMissingAlertSupress"_s,
            false },
        // The helper had dependent tracks at its last look: it says when it is no longer needed.
        { Key::HadDependentTracks, u"CVHHadDependentTracks"_s, {} },
        // The program that installed the helper, which the helper opens.
        { Key::CorvanaApplication, u"CVHCorvanaApplication"_s, {} },
    } };
    return keys;
}

QString CVHUserDefaults::filePathForIdentifier(const QString &identifier)
{
    if (QDir::isAbsolutePath(identifier))
        return identifier;
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/Corvana/"_s;
    if (identifier == QLatin1StringView(HelperIdentifier))
        return folder + u"Corvana Helper.conf"_s;
    return folder + identifier + u".conf"_s;
}

CVHUserDefaults::CVHUserDefaults(const QString &identifier)
{
    setIdentifier(identifier);
}

CVHUserDefaults::~CVHUserDefaults() = default;

void CVHUserDefaults::setIdentifier(const QString &identifier)
{
    m_identifier = identifier;
    m_settings = std::make_unique<QSettings>(filePathForIdentifier(identifier), QSettings::IniFormat);
}

QString CVHUserDefaults::filePath() const
{
    return m_settings->fileName();
}

QVariant CVHUserDefaults::objectForKey(CVHSettingsKey key)
{
    synchronize();
    const KeyInfo &entry = keyTable()[std::size_t(key)];
    return m_settings->contains(entry.name) ? m_settings->value(entry.name) : entry.defaultValue;
}

void CVHUserDefaults::setObject(const QVariant &value, CVHSettingsKey entry)
{
    const QString key = name(entry);
    synchronize();
    if (!value.isValid()) {
        removeObjectForKey(entry);
        return;
    }
    if (m_settings->contains(key) && sameStoredValue(m_settings->value(key), value))
        return;
    m_settings->setValue(key, value);
    m_settings->sync();
}

void CVHUserDefaults::removeObjectForKey(CVHSettingsKey entry)
{
    const QString key = name(entry);
    synchronize();
    if (!m_settings->contains(key))
        return;
    m_settings->remove(key);
    m_settings->sync();
}

qint64 CVHUserDefaults::integerForKey(CVHSettingsKey key)
{
    return CVSettings::toInteger(objectForKey(key));
}

bool CVHUserDefaults::boolForKey(CVHSettingsKey key)
{
    return CVSettings::toBool(objectForKey(key));
}

void CVHUserDefaults::synchronize()
{
    // Writes what is pending and takes in what the other program wrote since.
    m_settings->sync();
}

QVariantMap CVHUserDefaults::dictionaryValue()
{
    synchronize();
    QVariantMap values;
    for (const QString &key : m_settings->allKeys())
        values.insert(key, m_settings->value(key));
    return values;
}
