#pragma once

#include <QStringList>

#include <memory>

class CVLibraryManager;
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

    std::unique_ptr<CVSettings> m_settings;
    std::unique_ptr<CVPresenter> m_presenter;
    std::unique_ptr<CVLibraryManager> m_library;
};
