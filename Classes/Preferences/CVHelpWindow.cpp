#include "Preferences/CVHelpWindow.h"

#include "Platform/CVInstallLayout.h"
#include "Platform/CVSettings.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QTextBrowser>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

CVHelpWindow::CVHelpWindow(CVSettings *settings, QWidget *parent)
    : QDialog(parent)
    , m_settings(settings)
    , m_browser(new QTextBrowser(this))
    , m_back(new QToolButton(this))
    , m_forward(new QToolButton(this))
{
    setObjectName(u"CVHelpWindow"_s);
    setWindowTitle(u"Corvana Help"_s);
    setAccessibleName(u"Corvana Help"_s);
    setWindowFlag(Qt::WindowMaximizeButtonHint);
    m_browser->setObjectName(u"helpPage"_s);
    m_browser->setAccessibleName(u"Help page"_s);
    m_browser->setOpenExternalLinks(true);

    auto *contents = new QToolButton(this);
    auto *bar = new QHBoxLayout;
    auto setUp = [bar](QToolButton *button, const QString &text, const QString &icon, const QKeySequence &key) {
        button->setText(text);
        button->setIcon(QIcon::fromTheme(icon));
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setShortcut(key);
        button->setFocusPolicy(Qt::TabFocus);
        button->setAccessibleName(QString(text).remove(u'&'));
        bar->addWidget(button);
    };
    setUp(m_back, u"&Back"_s, u"go-previous"_s, QKeySequence(QKeySequence::Back));
    setUp(m_forward, u"&Forward"_s, u"go-next"_s, QKeySequence(QKeySequence::Forward));
    setUp(contents, u"&Contents"_s, u"go-home"_s, QKeySequence(u"Alt+Home"_s));
    bar->addStretch(1);
    connect(m_back, &QToolButton::clicked, m_browser, &QTextBrowser::backward);
    connect(m_forward, &QToolButton::clicked, m_browser, &QTextBrowser::forward);
    connect(contents, &QToolButton::clicked, this, [this] { showPage(); });
    connect(m_browser, &QTextBrowser::backwardAvailable, m_back, &QWidget::setEnabled);
    connect(m_browser, &QTextBrowser::forwardAvailable, m_forward, &QWidget::setEnabled);
    m_back->setEnabled(false);
    m_forward->setEnabled(false);
    connect(m_browser, &QTextBrowser::sourceChanged, this, [this] {
        const QString title = m_browser->documentTitle();
        setWindowTitle(
            title.isEmpty() || title == u"Corvana Help"_s ? u"Corvana Help"_s : u"Corvana Help — %1"_s.arg(title));
    });

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(bar);
    layout->addWidget(m_browser, 1);
    resize(640, 560);
}

bool CVHelpWindow::showPage(const QString &page)
{
    if (!m_placed) {
        m_placed = true;
        const QStringList frame = m_settings->stringValue(FrameKey).split(u' ');
        if (frame.size() == 4 && frame[2].toInt() > 0 && frame[3].toInt() > 0)
            setGeometry(frame[0].toInt(), frame[1].toInt(), frame[2].toInt(), frame[3].toInt());
    }
    const QString index = CVInstallLayout::dataFile(u"help/index.html"_s);
    bool found = false;
    if (!index.isEmpty()) {
        const QString file = QFileInfo(index).absolutePath() + u'/' + page;
        found = QFileInfo::exists(file);
        m_browser->setSource(QUrl::fromLocalFile(found ? file : index));
    } else {
        m_browser->setHtml(u"<h1>Corvana Help</h1><p>The help pages are not installed with this copy of Corvana. "
                           "They are in the folder <code>share/help</code> of its source.</p>"_s);
    }
    show();
    raise();
    activateWindow();
    return found;
}

void CVHelpWindow::hideEvent(QHideEvent *event)
{
    const QRect g = geometry();
    m_settings->setValue(FrameKey, u"%1 %2 %3 %4"_s.arg(g.x()).arg(g.y()).arg(g.width()).arg(g.height()));
    QDialog::hideEvent(event);
}
