#include "CVStandardErrorPresenter.h"

#include <cstdio>

int CVStandardErrorPresenter::runAlertPanel(const CVAlert &alert)
{
    std::fprintf(stderr, "%s\n%s\n", qUtf8Printable(alert.title.trimmed()), qUtf8Printable(alert.text));
    return DefaultReturn;
}

void CVStandardErrorPresenter::presentError(const QString &message, const QString &informativeText)
{
    std::fprintf(stderr, "%s\n%s\n", qUtf8Printable(message), qUtf8Printable(informativeText));
}
