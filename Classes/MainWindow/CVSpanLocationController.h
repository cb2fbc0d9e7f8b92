#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

class CVFileManagerLink;
class CVLibraryManager;
class CVMediaSpanner;
class CVSettings;
class CVSheetPresenter;
class CVSpanLocationView;
class QMenu;
class QPoint;
class QWidget;

// The span location: choosing it (the folder chooser, a dropped folder, the history, a folder of
// the locations pane), the advice about a newly chosen folder, its view under the queue, the
// history of locations and the view's menus.
class CVSpanLocationController : public QObject {
    Q_OBJECT

public:
    // What the rest of the window answers.
    struct Context {
        std::function<bool()> crashedWhileSpanning; // the location stays as the crashed run left it
        std::function<CVMediaSpanner *()> spanner; // for the checks of a new folder; null: none
        std::function<bool()> restoreMode; // no location is chosen in restore mode
        std::function<bool()> mainViewVisible;
        std::function<CVFileManagerLink *()> fileManager;
    };

    CVSpanLocationController(CVSettings *settings, CVLibraryManager *library, CVSheetPresenter *presenter,
        CVSpanLocationView *view, QWidget *dialogParent, Context context, QObject *parent = nullptr);
    ~CVSpanLocationController() override;

    const QString &spanLocation() const { return m_spanLocation; }
    // A drive container ("/Volumes", a mount folder) is no location. checkIt: the advice about
    // the folder is shown (a chosen folder; not one restored from the settings).
    void setSpanLocation(const QString &path, bool checkIt);
    void clearSpanLocation() { setSpanLocation(QString(), false); }
    void chooseSpanLocation();
    void changeSpanLocationWithConfirmation(const QString &path);
    void reloadSpanLocatonInformation();
    void spanLocationDropped(const QString &path);

    // The history of span locations ("CVSpanLocationHistory"), newest first, at most five.
    QStringList spanLocationHistory() const;
    void fillSpanLocationsHistoryMenu(QMenu *menu);
    void popUpSpanLocationsHistoryMenu(const QPoint &globalPosition);
    void setSpanLocationFromHistory(const QString &path);
    void addOrRemoveLocationToHistory();
    void addLocationToHistory(const QString &path);
    void clearSpanLocationHistory();
    void showLocationInFinder();
    void fillSpanLocationContextMenu(QMenu *menu);
    void showSpanLocationContextMenu(const QPoint &globalPosition);

Q_SIGNALS:
    // The location was set (empty: cleared), before any advice about it.
    void locationChanged(const QString &path);

private:
    void didEndSpanLocationCheckSheet(int advice, int returnCode, const QString &location, const QString &previous);

    CVSettings *m_settings;
    CVLibraryManager *m_library;
    CVSheetPresenter *m_presenter;
    CVSpanLocationView *m_view;
    QWidget *m_dialogParent;
    Context m_context;
    QString m_spanLocation;
};
