#include "Engine/CVMediaSpanner.h"

CVMediaSpanner::CVMediaSpanner(
    CVPlayerLink *playerLink, CVFileManagerLink *fileManager, CVPresenter *presenter, QObject *parent)
    : QObject(parent)
    , m_playerLink(playerLink)
    , m_fileManager(fileManager)
    , m_presenter(presenter)
{
}

CVMediaSpanner::~CVMediaSpanner() = default;
