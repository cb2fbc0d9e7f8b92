#pragma once

#include <QObject>
#include <QString>

class CVApplicationDelegate;

// The program's screenshot mode: starts as usual (dialogs answered), then renders the loading
// view, the main view, a search, TV shows, the information panel and the dark palette, then a
// filled spanning queue, the confirmation sheet, a run in progress and its results (light and
// dark), the preferences panes and the column display options (light and dark), help and about, to
// PNG files in a folder, and quits.
class CVScreenshots : public QObject {
    Q_OBJECT

public:
    CVScreenshots(CVApplicationDelegate *app, QString folder, QObject *parent = nullptr);

    // Hooks into the start; the shots follow when the first load ends.
    void begin();
    bool succeeded() const { return m_failures == 0; }

private:
    void takeMainViewShots();
    void takeRunShots();
    void takeResultsShots();
    // The preferences panes, the column display options, help and about.
    void takeSettingsShots();
    void save(QWidget *widget, const QString &name);
    void savePixmap(const QPixmap &pixmap, const QString &name);
    // The window with a sheet over it, as the desktop shows a window-modal box.
    void saveWithSheet(const QString &name);
    // The widget in the light palette, then in the dark one ("-dark").
    void saveLightAndDark(QWidget *widget, const QString &name);

    CVApplicationDelegate *m_app;
    QString m_folder;
    bool m_loadingTaken = false;
    int m_copies = 0;
    int m_failures = 0;
};
