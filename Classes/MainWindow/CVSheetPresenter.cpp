#include "MainWindow/CVSheetPresenter.h"

#include "Views/CVIcons.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QGraphicsDropShadowEffect>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>
#include <QTimer>

using namespace Qt::StringLiterals;

struct CVSheetPresenter::Open {
    CVAlert alert;
    Completion completion;
    QPointer<QMessageBox> box;
    bool answered = false;
};

namespace {

bool onMainThread()
{
    return QThread::currentThread() == QCoreApplication::instance()->thread();
}

QMessageBox::Icon iconFor(CVAlert::Style style)
{
    switch (style) {
    case CVAlert::Style::Informational:
        return QMessageBox::Information;
    case CVAlert::Style::Critical:
        return QMessageBox::Critical;
    case CVAlert::Style::Warning:
        break;
    }
    return QMessageBox::Warning;
}

} // namespace

CVSheetPresenter::CVSheetPresenter(QObject *parent)
    : QObject(parent)
{
}

CVSheetPresenter::~CVSheetPresenter()
{
    if (m_open && m_open->box)
        delete m_open->box;
}

QMessageBox *CVSheetPresenter::makeBox(
    const CVAlert &alert, QWidget *parent, QList<QPair<QObject *, int>> *buttons) const
{
    auto *box = new QMessageBox(parent);
    box->setIcon(iconFor(alert.style));
    if (const QIcon named = CVIcons::named(alert.icon); !named.isNull())
        box->setIconPixmap(named.pixmap(64, 64));
    if (alert.centred) {
        if (auto *label = box->findChild<QLabel *>(u"qt_msgbox_label"_s)) {
            label->setAlignment(Qt::AlignCenter);
            auto *shadow = new QGraphicsDropShadowEffect(label);
            shadow->setBlurRadius(4);
            shadow->setOffset(0, 1);
            shadow->setColor(QColor(0, 0, 0, 60));
            label->setGraphicsEffect(shadow);
        }
    }
    // A panel's title is its message; an empty title leaves the informative text alone.
    box->setText(alert.title.isEmpty() ? alert.text : alert.title);
    if (!alert.title.isEmpty())
        box->setInformativeText(alert.text);
    box->setWindowTitle(QCoreApplication::applicationName());
    const QString defaultTitle = alert.defaultButton.isEmpty() ? u"OK"_s : alert.defaultButton;
    QPushButton *defaultButton = box->addButton(defaultTitle, QMessageBox::AcceptRole);
    buttons->append({ defaultButton, DefaultReturn });
    box->setDefaultButton(defaultButton);
    box->setEscapeButton(defaultButton);
    if (!alert.otherButton.isEmpty())
        buttons->append({ box->addButton(alert.otherButton, QMessageBox::DestructiveRole), OtherReturn });
    if (!alert.alternateButton.isEmpty()) {
        QPushButton *alternate = box->addButton(alert.alternateButton, QMessageBox::RejectRole);
        buttons->append({ alternate, AlternateReturn });
        box->setEscapeButton(alternate);
    }
    return box;
}

int CVSheetPresenter::runAlertPanel(const CVAlert &alert)
{
    if (!onMainThread()) {
        int answer = DefaultReturn;
        QMetaObject::invokeMethod(
            this, [&] { answer = runPanelOnMainThread(alert); }, Qt::BlockingQueuedConnection);
        return answer;
    }
    return runPanelOnMainThread(alert);
}

int CVSheetPresenter::runPanelOnMainThread(const CVAlert &alert)
{
    m_shown.append(alert);
    Q_EMIT sheetShown(alert);
    if (m_answering)
        return m_answers.isEmpty() ? DefaultReturn : m_answers.takeFirst();
    QList<QPair<QObject *, int>> buttons;
    QMessageBox *box = makeBox(alert, m_window, &buttons);
    box->setWindowModality(Qt::ApplicationModal);
    box->exec();
    int answer = DefaultReturn;
    for (const auto &[button, code] : buttons)
        if (box->clickedButton() == button)
            answer = code;
    delete box;
    return answer;
}

void CVSheetPresenter::presentError(const QString &message, const QString &informativeText)
{
    CVAlert alert;
    alert.title = message;
    alert.text = informativeText;
    alert.style = CVAlert::Style::Critical;
    runAlertPanel(alert);
}

void CVSheetPresenter::setStatusText(const QString &text)
{
    Q_EMIT statusTextChanged(text);
}

void CVSheetPresenter::setProgressIndeterminate(bool animating)
{
    Q_EMIT progressIndeterminateChanged(animating);
}

void CVSheetPresenter::setProgress(double maximum, double value)
{
    Q_EMIT progressChanged(maximum, value);
}

void CVSheetPresenter::beginSheet(const CVAlert &alert, Completion completion)
{
    Q_ASSERT(onMainThread());
    m_pending.append({ alert, std::move(completion) });
    if (!m_open)
        showNextSheet();
}

void CVSheetPresenter::showNextSheet()
{
    if (m_open || m_pending.isEmpty())
        return;
    Pending next = m_pending.takeFirst();
    m_open = std::make_unique<Open>();
    m_open->alert = next.alert;
    m_open->completion = std::move(next.completion);
    m_shown.append(next.alert);
    Q_EMIT sheetShown(next.alert);
    if (m_answering) {
        if (!m_answers.isEmpty()) {
            const int answer = m_answers.takeFirst();
            QTimer::singleShot(0, this, [this, answer] { answerSheet(answer); });
        }
        return;
    }
    QList<QPair<QObject *, int>> buttons;
    QMessageBox *box = makeBox(next.alert, m_window, &buttons);
    box->setWindowModality(m_window ? Qt::WindowModal : Qt::ApplicationModal);
    m_open->box = box;
    connect(box, &QMessageBox::buttonClicked, this, [this, buttons](QAbstractButton *clicked) {
        for (const auto &[button, code] : buttons)
            if (button == clicked)
                answerSheet(code);
    });
    // Closed without a button (the window manager's close): the escape button's answer.
    connect(box, &QMessageBox::finished, this, [this, box, buttons] {
        if (!m_open || m_open->box != box || m_open->answered)
            return;
        for (const auto &[button, code] : buttons)
            if (button == box->escapeButton())
                answerSheet(code);
    });
    box->open();
}

void CVSheetPresenter::answerSheet(int returnCode)
{
    if (!m_open || m_open->answered)
        return;
    m_open->answered = true;
    finishSheet(returnCode);
}

void CVSheetPresenter::finishSheet(int returnCode)
{
    std::unique_ptr<Open> open = std::move(m_open);
    if (open->box) {
        open->box->hide();
        open->box->deleteLater();
    }
    // The completion may begin the next sheet itself; queued ones follow it.
    if (open->completion)
        open->completion(returnCode);
    showNextSheet();
}

const CVAlert &CVSheetPresenter::openSheet() const
{
    static const CVAlert none;
    return m_open ? m_open->alert : none;
}
