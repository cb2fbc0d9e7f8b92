#include "CVSheetAnswer.h"

#include "MainWindow/CVSheetPresenter.h"

#include <QDebug>
#include <QWidget>

bool answerSheet(CVSheetPresenter *presenter, const QString &title, int answer, CVSheetTitle match)
{
    if (!presenter->hasOpenSheet()) {
        qWarning().noquote() << "no sheet is open; expected" << title;
        return false;
    }
    const QString open = presenter->openSheet().title;
    if (match == CVSheetTitle::Whole ? open != title : !open.startsWith(title)) {
        qWarning().noquote() << "the sheet open is" << open << "/" << presenter->openSheet().text << "; expected"
                             << title;
        return false;
    }
    presenter->answerSheet(answer);
    return true;
}
