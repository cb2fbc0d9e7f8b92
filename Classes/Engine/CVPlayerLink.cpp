#include "Engine/CVPlayerLink.h"

#include "Engine/CVDBusPlayerLink.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVRhythmboxPlayerLink.h"
#include "Engine/CVStrawberryPlayerLink.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVSpanHistory.h"

CVPlayerLink::~CVPlayerLink() = default;

std::unique_ptr<CVPlayerLink> CVPlayerLink::choose(
    const QString &libraryPath, CVFileManagerLink *fileManager, const QString &player)
{
    const QString support = CVSpanHistory::applicationSupportFolder();
    if ((libraryPath.isEmpty() && player == QLatin1StringView(CVPlayerLibraryFile::PlayerStrawberry))
        || (!libraryPath.isEmpty()
            && CVPlayerLibraryFile::kindOf(libraryPath) == CVPlayerLibraryFile::Kind::Strawberry)) {
        const QString database = libraryPath.isEmpty() ? CVPlayerLibraryFile::strawberryLibraryPath() : libraryPath;
        return std::make_unique<CVStrawberryPlayerLink>(database, support, fileManager);
    }
    if ((libraryPath.isEmpty() && player == QLatin1StringView(CVPlayerLibraryFile::PlayerRhythmbox))
        || (!libraryPath.isEmpty()
            && CVPlayerLibraryFile::kindOf(libraryPath) == CVPlayerLibraryFile::Kind::Rhythmbox)) {
        const QString database = libraryPath.isEmpty() ? CVPlayerLibraryFile::rhythmboxLibraryPath() : libraryPath;
        return std::make_unique<CVRhythmboxPlayerLink>(database, support, fileManager);
    }
    if (player != QLatin1StringView(CVPlayerLibraryFile::PlayerITunesFile)) {
        const QString service = CVDBusPlayerLink::findPlayerService();
        if (!service.isEmpty())
            return std::make_unique<CVDBusPlayerLink>(service);
        if (player == QLatin1StringView(CVPlayerLibraryFile::PlayerDBus))
            return nullptr;
    }
    return std::make_unique<CVLibraryFilePlayerLink>(libraryPath, support, fileManager);
}
