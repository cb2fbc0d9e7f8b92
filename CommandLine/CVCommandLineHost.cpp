#include "CVCommandLineHost.h"

#include "Engine/CVMediaSpanner.h"
#include "Engine/CVPlayerLink.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVSpanHistory.h"

void CVCommandLineHost::telliTunesToQuit()
{
    if (m_link)
        m_link->quit();
}

bool CVCommandLineHost::saveAction()
{
    return m_history && m_history->saveAction();
}

void CVCommandLineHost::loadCorvanaAndDisplayMainView()
{
    if (m_library && m_library->loadiTunesXMLDatabase() == CVLibraryManager::LoadResult::Loaded)
        m_library->joinSpanHistory();
}

void CVCommandLineHost::quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling()
{
    if (m_spanner)
        m_spanner->quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
}
