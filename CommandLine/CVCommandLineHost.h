#pragma once

#include "Engine/CVSpannerHost.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVLibraryHost.h"
#include "Platform/CVHelperApplicationControl.h"

#include <QString>

class CVLibraryManager;
class CVMediaSpanner;
class CVPlayerLink;
class CVSpanHistory;

// The command-line tool as the engine's hosts and the library's: the run's mode and location
// come from the options, the crash facts from the settings, and the player quits at once.
class CVCommandLineHost : public CVSpannerHost, public CVSpannerRunHost, public CVLibraryHost {
public:
    bool restoreMode() const override { return m_restoreMode; }
    QString spanLocation() const override { return m_spanLocation; }
    void setRestoreMode(bool restore) { m_restoreMode = restore; }
    void setSpanLocation(const QString &location) { m_spanLocation = location; }

    void setParts(CVMediaSpanner *spanner, CVPlayerLink *link, CVLibraryManager *library, CVSpanHistory *history)
    {
        m_spanner = spanner;
        m_link = link;
        m_library = library;
        m_history = history;
    }

    void telliTunesToQuit() override;
    void clearSpanLocation() override { m_spanLocation.clear(); }
    void doSetSpanMode() override { m_restoreMode = false; }
    bool crashedWhileSpanningLastRun() const override { return m_crashedWhileSpanning; }
    void setCrashedWhileSpanningLastRun(bool crashed) override { m_crashedWhileSpanning = crashed; }
    bool saveAction() override;
    void tellCorvanaHelperToQuit() override { m_helper.tellCorvanaHelperToQuit(); }
    void launchCorvanaHelper() override { m_helper.launchCorvanaHelper(); }
    void loadCorvanaAndDisplayMainView() override;

    // CVLibraryHost
    void setQuitNowWithoutSaving(bool quit) override { m_quitNowWithoutSaving = quit; }
    void quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling() override;
    bool quitNowWithoutSaving() const { return m_quitNowWithoutSaving; }

private:
    bool m_restoreMode = false;
    QString m_spanLocation;
    bool m_crashedWhileSpanning = false;
    bool m_quitNowWithoutSaving = false;
    CVMediaSpanner *m_spanner = nullptr;
    CVPlayerLink *m_link = nullptr;
    CVLibraryManager *m_library = nullptr;
    CVSpanHistory *m_history = nullptr;
    CVHelperApplicationControl m_helper;
};
