#pragma once

#include <QStringList>

#include <memory>

class CVInstanceLock;
class CVLibraryManager;
class CVSpanHistory;
class CVFixedSpanRunState;
class CVPresenter;
class CVSettings;

// corvana-cli: the program's library work without a window.
class CVCommandLineTool {
public:
    CVCommandLineTool();
    ~CVCommandLineTool();

    int run(const QStringList &arguments);

private:
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
    std::unique_ptr<CVFixedSpanRunState> m_runState;
};
