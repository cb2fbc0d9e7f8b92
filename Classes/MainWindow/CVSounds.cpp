#include "MainWindow/CVSounds.h"

#include <QFileInfo>
#include <QSoundEffect>
#include <QUrl>

using namespace Qt::StringLiterals;

CVSounds::CVSounds(QObject *parent)
    : QObject(parent)
{
}

CVSounds::~CVSounds() = default;

bool CVSounds::audioAvailable()
{
    if (!qEnvironmentVariableIsEmpty("PULSE_SERVER"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    // PulseAudio, or PipeWire's stand-in for it, listens here.
    return !runtime.isEmpty() && QFileInfo::exists(runtime + u"/pulse/native"_s);
}

void CVSounds::play(const QString &name)
{
    Q_EMIT played(name);
    if (m_available < 0)
        m_available = audioAvailable() ? 1 : 0;
    if (m_available == 0)
        return;
    QSoundEffect *effect = m_effects.value(name);
    if (!effect) {
        const QString resource = u":/sounds/%1.wav"_s.arg(name);
        if (!QFileInfo::exists(resource))
            return;
        effect = new QSoundEffect(this);
        effect->setSource(QUrl(u"qrc"_s + resource));
        effect->setVolume(0.6f);
        m_effects.insert(name, effect);
    }
    effect->play();
}
