// The windows around the main one: preferences, column display options, help, about, and what
// an update check found.
#include "CVWindowDelegate.h"

#include "Browsing/CVBrowserDelegate.h"
#include "CVApplicationDelegate.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Platform/CVHUserDefaults.h"
#include "Platform/CVSettings.h"
#include "Preferences/CVAboutWindow.h"
#include "Preferences/CVColumnDisplayOptionDelegate.h"
#include "Preferences/CVHelpWindow.h"
#include "Preferences/CVPrefsWindowController.h"

#include <QDesktopServices>

using namespace Qt::StringLiterals;

namespace {

void bringToFront(QWidget *window)
{
    window->show();
    window->raise();
    window->activateWindow();
}

} // namespace

void CVWindowDelegate::showPreferences()
{
    if (!m_prefsWindow) {
        // The shared instance finds its file when first used; bind it to this session's home
        // (a test's temporary one may differ from the one it was first used in).
        CVHUserDefaults &helperDefaults = CVHUserDefaults::standardUserDefaults();
        helperDefaults.setIdentifier(helperDefaults.identifier());
        m_prefsWindow = new CVPrefsWindowController(
            m_settings, m_app->updateChecker(), &m_app->helperControl(), &helperDefaults, m_window);
        connect(m_prefsWindow, &CVPrefsWindowController::helpRequested, this,
            [this](const QString &page) { showHelp(page); });
    }
    bringToFront(m_prefsWindow);
}

void CVWindowDelegate::showColumnDisplayOptions()
{
    if (!m_columnOptions) {
        m_columnOptions = new CVColumnDisplayOptionDelegate(m_settings, m_browser, m_window);
        connect(m_columnOptions, &CVColumnDisplayOptionDelegate::helpRequested, this,
            [this] { showHelp(u"preferences.html"_s); });
    }
    bringToFront(m_columnOptions);
}

void CVWindowDelegate::showHelp(const QString &page)
{
    if (!m_helpWindow)
        m_helpWindow = new CVHelpWindow(m_settings, m_window);
    m_helpWindow->showPage(page);
}

void CVWindowDelegate::showAbout()
{
    if (!m_aboutWindow) {
        m_aboutWindow = new CVAboutWindow(m_window);
        connect(m_aboutWindow, &CVAboutWindow::helpRequested, this, [this] { showHelp(); });
    }
    bringToFront(m_aboutWindow);
}

void CVWindowDelegate::checkForUpdates()
{
    m_app->updateChecker()->checkForUpdates(true);
}

void CVWindowDelegate::updateCheckFinished(const CVUpdateChecker::Result &result)
{
    CVAlert alert;
    const QUrl notes = result.newest ? result.newest->releaseNotes : QUrl();
    switch (result.outcome) {
    case CVUpdateChecker::Outcome::UpdateAvailable:
        alert.title = u"\nA new version of Corvana is available!"_s;
        alert.text = result.message
            + u"\n\nInstall it with your distribution's packages. Corvana itself downloads and installs nothing."_s;
        alert.style = CVAlert::Style::Informational;
        if (notes.isValid()) {
            alert.defaultButton = u"Show Release Notes"_s;
            alert.alternateButton = u"Later"_s;
        }
        break;
    case CVUpdateChecker::Outcome::UpToDate:
        // A scheduled check that finds nothing new says nothing.
        if (!result.userInitiated)
            return;
        alert.title = u"\nCorvana is up to date."_s;
        alert.text = result.message;
        alert.style = CVAlert::Style::Informational;
        break;
    case CVUpdateChecker::Outcome::Failed:
        if (!result.userInitiated)
            return;
        if (m_app->updateChecker()->feedUrl().isEmpty()) {
            alert.title = u"\nThis build of Corvana checks for no updates."_s;
            alert.text = u"Your distribution's packages bring new versions of Corvana."_s;
            alert.style = CVAlert::Style::Informational;
            break;
        }
        alert.title = u"\nCorvana could not check for updates."_s;
        alert.text = result.message;
        break;
    }
    m_presenter->beginSheet(alert, [this, notes](int returnCode) { didEndUpdateCheck(returnCode, notes); });
}

void CVWindowDelegate::didEndUpdateCheck(int returnCode, const QUrl &releaseNotes)
{
    if (returnCode == CVPresenter::DefaultReturn && releaseNotes.isValid())
        QDesktopServices::openUrl(releaseNotes);
}
