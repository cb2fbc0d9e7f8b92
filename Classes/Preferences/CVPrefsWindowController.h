#pragma once

#include <QDialog>
#include <QList>

class AdvancedPreferences;
class CorvanaHelperPreferences;
class CVHelperApplicationControl;
class CVHUserDefaults;
class CVPreferencesPane;
class CVSettings;
class CVUpdateChecker;
class GeneralPreferences;
class QActionGroup;
class QStackedWidget;
class QToolBar;
class UpdatingPreferences;

// The preferences window: a tool bar of panes (General, Advanced, Updating, Corvana Helper)
// above the pane shown. It is not modal, and every control takes effect as it changes, so the
// window has only Help and Close.
class CVPrefsWindowController : public QDialog {
    Q_OBJECT

public:
    enum Pane { General, Advanced, Updating, Helper };

    CVPrefsWindowController(CVSettings *settings, CVUpdateChecker *checker, CVHelperApplicationControl *helperControl,
        CVHUserDefaults *helperDefaults, QWidget *parent = nullptr);

    void showPane(int pane);
    int currentPane() const;
    CVPreferencesPane *pane(int pane) const { return m_panes.value(pane); }
    GeneralPreferences *generalPreferences() const;
    AdvancedPreferences *advancedPreferences() const;
    UpdatingPreferences *updatingPreferences() const;
    CorvanaHelperPreferences *helperPreferences() const;
    QToolBar *toolBar() const { return m_toolBar; }

Q_SIGNALS:
    // The help pages about the pane shown.
    void helpRequested(const QString &page);

private:
    QToolBar *m_toolBar;
    QActionGroup *m_paneActions;
    QStackedWidget *m_stack;
    QList<CVPreferencesPane *> m_panes;
};
