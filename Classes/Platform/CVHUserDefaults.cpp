#include "Platform/CVHUserDefaults.h"

#include "Platform/CVSettings.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

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

QVariantMap CVHUserDefaults::helperDefaults()
{
    return {
        { u"CVHShowInMenubar"_s, 1 },
        { u"CVHAllowedToAlwaysRun"_s, 0 },
        { u"CVHLoginItemAlertSupress"_s, false },
        { u"CVHNotNecessaryAlertSupress"_s, false },
        { u"CVHTracksUnavailableWhenITunesLaunchesAlertSupress"_s, false },
        { u"CVHTracksUnavailableWhenDrivesUnmountAlertSupress"_s, true },
        { u"CVHTracksUnavailableWhenFilesMissingAlertSupress"_s, false },
    };
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
    : m_defaults(helperDefaults())
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

void CVHUserDefaults::registerDefaults(const QVariantMap &defaults)
{
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
        m_defaults.insert(it.key(), it.value());
}

QVariant CVHUserDefaults::objectForKey(const QString &key)
{
    synchronize();
    return m_settings->contains(key) ? m_settings->value(key) : m_defaults.value(key);
}

void CVHUserDefaults::setObject(const QVariant &value, const QString &key)
{
    synchronize();
    if (!value.isValid()) {
        removeObjectForKey(key);
        return;
    }
    if (m_settings->contains(key) && sameStoredValue(m_settings->value(key), value))
        return;
    m_settings->setValue(key, value);
    m_settings->sync();
}

void CVHUserDefaults::removeObjectForKey(const QString &key)
{
    synchronize();
    if (!m_settings->contains(key))
        return;
    m_settings->remove(key);
    m_settings->sync();
}

qint64 CVHUserDefaults::integerForKey(const QString &key)
{
    return CVSettings::toInteger(objectForKey(key));
}

bool CVHUserDefaults::boolForKey(const QString &key)
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
