#pragma once

#include "Platform/CVTrash.h"

#include <QString>
#include <QStringList>

// The desktop's file manager: selecting a file in a viewer, opening files and applications,
// and the Trash. Virtual so that the engine's tests can watch what is asked of it.
class CVFileManagerLink {
public:
    virtual ~CVFileManagerLink();

    // The one link of the program.
    static CVFileManagerLink *shared();

    // Shows the file selected in a viewer of its folder: the file manager's D-Bus interface
    // when one runs, else the opener on the folder (its exit code checked).
    virtual bool selectFile(const QString &path);
    // Opens a file or folder with the desktop's default application.
    virtual bool openPath(const QString &path);
    // Starts an application by program name or by the Name of its desktop entry.
    virtual bool launchApplication(const QString &name);
    virtual bool openTrash();
    virtual CVTrash::Result moveToTrash(const QString &path);
    virtual bool isTrashEmpty();
    virtual int emptyTrash(QStringList *errors);

    // The program that opens a path ("xdg-open"); tests put a recorder here.
    void setOpener(const QString &program) { m_opener = program; }
    QString opener() const { return m_opener; }

private:
    bool runOpener(const QStringList &arguments) const;

    QString m_opener = QStringLiteral("xdg-open");
};
