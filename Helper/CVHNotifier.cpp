#include "CVHNotifier.h"

#include "Platform/CVLog.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

using namespace Qt::StringLiterals;

namespace {

const QString kService = u"org.freedesktop.Notifications"_s;
const QString kPath = u"/org/freedesktop/Notifications"_s;

} // namespace

CVHNotifier::CVHNotifier(QObject *parent)
    : QObject(parent)
{
    QDBusConnection::sessionBus().connect(
        kService, kPath, kService, u"ActionInvoked"_s, this, SLOT(onActionInvoked(uint, QString)));
}

QVariantList CVHNotifier::arguments(
    const QString &kind, const QString &summary, const QString &body, const QList<Action> &actions) const
{
    QStringList actionList;
    for (const Action &action : actions)
        actionList << action.key << action.label;
    QVariantMap hints;
    hints.insert(u"desktop-entry"_s, u"org.corvana.CorvanaHelper"_s);
    hints.insert(u"category"_s, u"device"_s);
    return { u"Corvana Helper"_s, m_idByKind.value(kind), u"dialog-warning"_s, summary, body, actionList, hints,
        int(-1) };
}

void CVHNotifier::notify(const QString &kind, const QString &summary, const QString &body, const QList<Action> &actions)
{
    CVLog::log(u"%1: %2"_s.arg(summary, body));
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, u"Notify"_s);
    call.setArguments(arguments(kind, summary, body, actions));
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, kind] {
        const QDBusPendingReply<uint> reply = *watcher;
        watcher->deleteLater();
        if (reply.isError()) {
            if (!m_reportedMissingService)
                CVLog::log(u"Desktop notifications cannot be shown: %1"_s.arg(reply.error().message()));
            m_reportedMissingService = true;
            return;
        }
        m_kindByID.remove(m_idByKind.value(kind));
        m_idByKind.insert(kind, reply.value());
        m_kindByID.insert(reply.value(), kind);
    });
}

void CVHNotifier::notifyAndWait(const QString &summary, const QString &body)
{
    CVLog::log(u"%1: %2"_s.arg(summary, body));
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, u"Notify"_s);
    call.setArguments(arguments(QString(), summary, body, {}));
    QDBusConnection::sessionBus().call(call, QDBus::Block, 3000);
}

void CVHNotifier::onActionInvoked(uint id, const QString &actionKey)
{
    const QString kind = m_kindByID.value(id);
    if (!kind.isEmpty())
        Q_EMIT actionInvoked(kind, actionKey);
}
