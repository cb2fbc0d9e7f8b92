#pragma once

#include <QString>

// A desktop notification through org.freedesktop.Notifications. Sending never waits for the
// service; a missing service costs one log line per process.
namespace CVDesktopNotification {

void notify(const QString &summary, const QString &body, const QString &iconName = QString());

} // namespace CVDesktopNotification
