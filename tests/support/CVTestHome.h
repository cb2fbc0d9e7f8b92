#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QTemporaryDir>

// A fresh home with its own XDG folders for one test: nothing touches the real user's
// files or settings. The environment is put back when it goes.
class CVTestHome {
public:
    CVTestHome();
    ~CVTestHome();
    CVTestHome(const CVTestHome &) = delete;
    CVTestHome &operator=(const CVTestHome &) = delete;

    QString path() const { return m_dir.path(); }
    QString filePath(const QString &relative) const { return m_dir.filePath(relative); }

private:
    QTemporaryDir m_dir;
    QList<QPair<QByteArray, QByteArray>> m_saved;
};
