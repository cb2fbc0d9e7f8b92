#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

// The system calls of a process tree, as `strace -f -y` records them, replayed to answer one
// question: when something went into the Trash, was everything that records the move already
// on the disk? A write or a new, moved or removed name is durable once its file (for bytes) or
// its folder (for names) was fsynced, or its whole filesystem synced, after it.
class CVSyscallTrace {
public:
    struct Call {
        int pid = 0;
        QString name;
        QString text; // the arguments as printed
        QStringList paths; // every path named: quoted arguments, then the files behind descriptors
        QStringList quoted; // only the quoted paths, in order
        QStringList descriptors; // only the files behind descriptors, in order
        long long result = -1;
    };

    // Whether strace can trace here; the reason when it cannot.
    static bool available(QString *why);
    // The command line that runs `program` under strace, writing the trace to `file`.
    static QStringList command(const QString &file, const QString &program, const QStringList &arguments);

    bool read(const QString &file);
    bool parse(const QByteArray &text);
    const QList<Call> &calls() const { return m_calls; }

    // Folders whose changes must be durable before any item goes into a Trash (the history's
    // folder, the player's library folder, the run's destinations). The item's own info file
    // always must be.
    void setRecordAreas(const QStringList &folders) { m_areas = folders; }
    // Which filesystem a path lies on; by default the device of its nearest existing folder.
    void setDeviceOf(std::function<quint64(const QString &)> deviceOf) { m_deviceOf = std::move(deviceOf); }

    // Each move into a Trash, in order: the item and where it went.
    QList<std::pair<QString, QString>> trashMoves() const;
    // One line for each move into a Trash before which something it needs was not durable.
    QStringList violations() const;

private:
    quint64 deviceOf(const QString &path) const;
    bool inAreas(const QString &path) const;

    QList<Call> m_calls;
    QStringList m_areas;
    std::function<quint64(const QString &)> m_deviceOf;
    mutable QHash<QString, quint64> m_devices;
};
