#include "Engine/CVPlayerLink.h"

#include "Engine/CVDBusPlayerLink.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Library/CVSpanHistory.h"

CVPlayerLink::~CVPlayerLink() = default;

std::unique_ptr<CVPlayerLink> CVPlayerLink::choose(const QString &libraryPath, CVFileManagerLink *fileManager)
{
    const QString service = CVDBusPlayerLink::findPlayerService();
    if (!service.isEmpty())
        return std::make_unique<CVDBusPlayerLink>(service);
    return std::make_unique<CVLibraryFilePlayerLink>(
        libraryPath, CVSpanHistory::applicationSupportFolder(), fileManager);
}
