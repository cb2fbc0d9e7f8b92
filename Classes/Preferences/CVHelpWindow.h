#pragma once

#include "Platform/CVSettings.h"
#include <QDialog>

class CVSettings;
class QTextBrowser;
class QToolButton;

// "Corvana Help": the help pages shipped with the program, in a window of their own with Back,
// Forward and Contents. Links to other sites open in the desktop's browser.
class CVHelpWindow : public QDialog {
    Q_OBJECT

public:
    static constexpr auto FrameKey = CVSettingsKey::HelpWindowFrame;

    explicit CVHelpWindow(CVSettings *settings, QWidget *parent = nullptr);

    // A page of the help folder ("helper.html"), shown and brought to the front; false when the
    // program's help is not installed (the window then says so).
    bool showPage(const QString &page = QStringLiteral("index.html"));
    QTextBrowser *browser() const { return m_browser; }

protected:
    void hideEvent(QHideEvent *event) override;

private:
    CVSettings *m_settings;
    QTextBrowser *m_browser;
    QToolButton *m_back;
    QToolButton *m_forward;
    bool m_placed = false;
};
