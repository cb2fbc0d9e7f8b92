#include "Platform/CVPresenter.h"

CVPresenter::~CVPresenter() = default;

void CVPresenter::setStatusText(const QString &)
{
}

void CVPresenter::setProgressIndeterminate(bool)
{
}

void CVPresenter::setProgress(double, double)
{
}
