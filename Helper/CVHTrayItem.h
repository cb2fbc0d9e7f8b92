#pragma once

#include <QObject>

class CVHCorvanaHelper;
class QAction;
class QMenu;
class QSystemTrayIcon;

// The helper's item in the desktop's tray (StatusNotifierItem on current desktops): its state
// in one line and the few things it can be asked to do.
class CVHTrayItem : public QObject {
    Q_OBJECT

public:
    explicit CVHTrayItem(CVHCorvanaHelper *helper, QObject *parent = nullptr);
    ~CVHTrayItem() override;

    void show();
    QMenu *menu() const { return m_menu; }

private:
    void refresh();

    CVHCorvanaHelper *m_helper;
    QMenu *m_menu;
    QSystemTrayIcon *m_icon;
    QAction *m_state;
    QAction *m_openCorvana;
    QAction *m_startAtLogin;
};
