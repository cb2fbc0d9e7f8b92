#pragma once

#include <QDateTime>
#include <QString>

// One change reported by the watcher: the folder in which something changed, with flags in
// the meanings of the design's event stream (see FileSystemEventWatcher::Flag).
class FileSystemEvent {
public:
    static FileSystemEvent eventWithEventId(
        quint64 eventId, const QDateTime &eventDate, const QString &eventPath, quint32 eventFlag)
    {
        FileSystemEvent event;
        event.m_eventId = eventId;
        event.m_eventDate = eventDate;
        event.m_eventPath = eventPath;
        event.m_eventFlag = eventFlag;
        return event;
    }

    quint64 eventId() const { return m_eventId; }
    QDateTime eventDate() const { return m_eventDate; }
    QString eventPath() const { return m_eventPath; }
    quint32 eventFlag() const { return m_eventFlag; }
    bool isValid() const { return m_eventId != 0; }

    QString description() const
    {
        return QStringLiteral("FileSystemEvent: id %1, date %2, path %3, flags 0x%4")
            .arg(QString::number(m_eventId), m_eventDate.toString(Qt::ISODateWithMs), m_eventPath,
                QString::number(m_eventFlag, 16));
    }

private:
    quint64 m_eventId = 0;
    QDateTime m_eventDate;
    QString m_eventPath;
    quint32 m_eventFlag = 0;
};

class FileSystemEventWatcher;

// Receives every event of a delivered batch on the thread the stream runs on.
class FileSystemEventListener {
public:
    virtual ~FileSystemEventListener() = default;
    virtual void pathWatcher(FileSystemEventWatcher *watcher, const FileSystemEvent &event) = 0;
};
