#pragma once

#include <QHash>
#include <QObject>

class QSoundEffect;

// The window's two sounds, "DropTrack" and "SpanComplete": our own short WAV files played with
// QSoundEffect. Without a sound server (so without an audio device for Qt) they stay silent,
// and nothing of Qt Multimedia is even started.
class CVSounds : public QObject {
    Q_OBJECT

public:
    explicit CVSounds(QObject *parent = nullptr);
    ~CVSounds() override;

    void play(const QString &name);
    // Whether a sound server can be reached (Qt's audio output on Linux goes through one).
    static bool audioAvailable();

Q_SIGNALS:
    // Every request, heard or not.
    void played(const QString &name);

private:
    QHash<QString, QSoundEffect *> m_effects;
    int m_available = -1; // not yet asked
};
