#pragma once

#include <QHash>
#include <QObject>
#include <QStringList>

// Desktop notifications through the desktop's own service, org.freedesktop.Notifications.
// Sending never waits for the service; a missing service costs a log line, once.
class CVHNotifier : public QObject {
    Q_OBJECT

public:
    struct Action {
        QString key;
        QString label;
    };

    explicit CVHNotifier(QObject *parent = nullptr);

    // The kind names the notification for its actions; a newer one of the same kind replaces
    // the older on screen.
    void notify(const QString &kind, const QString &summary, const QString &body, const QList<Action> &actions = {});
    // Waits (briefly) until the service has it: for the last words before quitting.
    void notifyAndWait(const QString &summary, const QString &body);

Q_SIGNALS:
    void actionInvoked(const QString &kind, const QString &actionKey);

private Q_SLOTS:
    void onActionInvoked(uint id, const QString &actionKey);

private:
    QVariantList arguments(
        const QString &kind, const QString &summary, const QString &body, const QList<Action> &actions) const;

    QHash<QString, uint> m_idByKind;
    QHash<uint, QString> m_kindByID;
    bool m_reportedMissingService = false;
};
