#include "Platform/CVLauncherEntry.h"

#include <QDBusConnection>
#include <QDBusMessage>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

CVLauncherEntry::CVLauncherEntry(const QString &desktopFileName)
    : m_uri(u"application://"_s + desktopFileName)
{
}

void CVLauncherEntry::setProgress(double fraction)
{
    fraction = std::clamp(fraction, 0.0, 1.0);
    if (m_visible && std::abs(fraction - m_sent) < 0.005)
        return;
    m_visible = true;
    m_sent = fraction;
    send({ { u"progress"_s, fraction }, { u"progress-visible"_s, true } });
}

void CVLauncherEntry::hideProgress()
{
    if (!m_visible)
        return;
    m_visible = false;
    m_sent = -1;
    send({ { u"progress"_s, 0.0 }, { u"progress-visible"_s, false } });
}

void CVLauncherEntry::send(const QVariantMap &properties)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage update
        = QDBusMessage::createSignal(QString::fromLatin1(ObjectPath), QString::fromLatin1(Interface), u"Update"_s);
    update << m_uri << properties;
    bus.send(update);
}
