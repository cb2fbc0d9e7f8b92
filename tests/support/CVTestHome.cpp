#include "CVTestHome.h"

#include <QDir>

using namespace Qt::StringLiterals;

CVTestHome::CVTestHome()
{
    const QList<QPair<QByteArray, QString>> vars = {
        { "HOME", u""_s },
        { "XDG_CONFIG_HOME", u"/.config"_s },
        { "XDG_DATA_HOME", u"/.local/share"_s },
        { "XDG_CACHE_HOME", u"/.cache"_s },
        { "XDG_RUNTIME_DIR", u"/.runtime"_s },
    };
    for (const auto &[name, sub] : vars) {
        m_saved.append({ name, qgetenv(name.constData()) });
        const QString folder = m_dir.path() + sub;
        QDir().mkpath(folder);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv(name.constData(), QFile::encodeName(folder));
    }
}

CVTestHome::~CVTestHome()
{
    for (const auto &[name, value] : m_saved) {
        if (value.isNull())
            qunsetenv(name.constData());
        else
            qputenv(name.constData(), value);
    }
}
