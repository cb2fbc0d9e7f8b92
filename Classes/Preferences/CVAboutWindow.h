#pragma once

#include <QDialog>

class QLabel;

// About Corvana: the program's icon, name and version, the Qt it runs on, and its licence.
class CVAboutWindow : public QDialog {
    Q_OBJECT

public:
    explicit CVAboutWindow(QWidget *parent = nullptr);

    QLabel *versionLabel = nullptr;
    QLabel *licenceLabel = nullptr;

Q_SIGNALS:
    void helpRequested();
};
