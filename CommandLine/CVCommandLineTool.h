#pragma once

#include "Library/CVLibraryManager.h"

#include <QStringList>

#include <memory>

class CVCommandLineHost;
class CVFileManagerLink;
class CVInstanceLock;
class CVMediaSpanner;
class CVPlayerLink;
class QCommandLineParser;
class CVSpanHistory;
class CVPresenter;
class CVSettings;

// corvana-cli: the program's library work without a window.
class CVCommandLineTool {
public:
    CVCommandLineTool();
    ~CVCommandLineTool();

    int run(const QStringList &arguments);

private:
    int runCommand(const QString &command, const QCommandLineParser &parser, const QStringList &positional,
        const CVLibraryManager::JoinResult &join);
    int info(const CVLibraryManager &library);
    int tracks(const CVLibraryManager &library);
    int playlists(const CVLibraryManager &library);
    int show(CVLibraryManager &library);
    int history(CVLibraryManager &library, bool asJson);

    std::unique_ptr<CVInstanceLock> m_instanceLock;
    std::unique_ptr<CVSettings> m_settings;
    std::unique_ptr<CVPresenter> m_presenter;
    std::unique_ptr<CVLibraryManager> m_library;
    std::unique_ptr<CVSpanHistory> m_history;
    std::unique_ptr<CVCommandLineHost> m_host;
    std::unique_ptr<CVPlayerLink> m_playerLink;
    std::unique_ptr<CVMediaSpanner> m_spanner;
};
