#pragma once

#include <QString>

class CVSheetPresenter;

enum class CVSheetTitle { Whole, Start };

// Answers the sheet that is open when its title is the one expected (whole, or how it starts);
// false, with what was open written to the test's output, when none or another one is.
bool answerSheet(
    CVSheetPresenter *presenter, const QString &title, int answer, CVSheetTitle match = CVSheetTitle::Whole);
