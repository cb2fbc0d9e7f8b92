#include "MainWindow/CVScreenshots.h"

#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVItemInformationDelegate.h"
#include "Browsing/CVTrackListModel.h"
#include "CVApplicationDelegate.h"
#include "CVWindowDelegate.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVRunProgress.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Preferences/CVAboutWindow.h"
#include "Preferences/CVColumnDisplayOptionDelegate.h"
#include "Preferences/CVColumnTokensModel.h"
#include "Preferences/CVHelpWindow.h"
#include "Preferences/CVPrefsWindowController.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QListView>
#include <QMenuBar>
#include <QMessageBox>
#include <QPainter>
#include <QPalette>
#include <QStyleFactory>
#include <QTableView>
#include <QThread>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize kShotSize { 1280, 800 };

void settle()
{
    for (int i = 0; i < 5; ++i)
        QApplication::processEvents();
}

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x2b, 0x2d, 0x30), base(0x1e, 0x1f, 0x22), text(0xe6, 0xe6, 0xe6);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, QColor(0x26, 0x28, 0x2b));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::Highlight, QColor(0x3d, 0x7c, 0xc9));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9d, 0xa3));
    p.setColor(QPalette::Mid, QColor(0x4a, 0x4d, 0x52));
    p.setColor(QPalette::Dark, QColor(0x15, 0x16, 0x18));
    p.setColor(QPalette::Light, QColor(0x45, 0x48, 0x4d));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x80, 0x83, 0x88));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x83, 0x88));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x83, 0x88));
    return p;
}

} // namespace

CVScreenshots::CVScreenshots(CVApplicationDelegate *app, QString folder, QObject *parent)
    : QObject(parent)
    , m_app(app)
    , m_folder(std::move(folder))
{
    QDir().mkpath(m_folder);
}

void CVScreenshots::save(QWidget *widget, const QString &name)
{
    savePixmap(widget->grab(), name);
}

void CVScreenshots::savePixmap(const QPixmap &pixmap, const QString &name)
{
    const QString path = QDir(m_folder).filePath(name + u".png"_s);
    if (!pixmap.save(path)) {
        ++m_failures;
        std::fprintf(stderr, "could not write %s\n", qUtf8Printable(path));
        return;
    }
    std::printf("%s\n", qUtf8Printable(path));
}

void CVScreenshots::begin()
{
    CVMainWindow *window = m_app->windowDelegate()->corvanaWindow();
    // The loading view at its busiest step.
    connect(m_app->presenter(), &CVSheetPresenter::statusTextChanged, this, [this, window](const QString &text) {
        if (m_loadingTaken || text != u"Loading iTunes Library Information into Corvana"_s)
            return;
        m_loadingTaken = true;
        save(window, u"loading"_s);
    });
    connect(m_app, &CVApplicationDelegate::loadFinished, this, &CVScreenshots::takeMainViewShots, Qt::QueuedConnection);
}

void CVScreenshots::takeMainViewShots()
{
    CVWindowDelegate *delegate = m_app->windowDelegate();
    CVMainWindow *window = delegate->corvanaWindow();
    CVBrowserDelegate *browser = delegate->browserDelegate();
    if (!m_loadingTaken)
        save(window, u"loading"_s);
    window->resize(kShotSize);
    // As a person sees it: the window in front, nothing dimmed.
    QApplication::setActiveWindow(window);
    delegate->windowDidBecomeMain();
    settle();
    browser->setMediaFilter(u"All"_s);
    settle();
    save(window, u"main"_s);

    delegate->filterSourcesWithSearch(u"love"_s);
    settle();
    save(window, u"search"_s);
    delegate->filterSourcesWithSearch(u""_s);

    browser->setMediaFilter(u"TV Shows"_s);
    browser->selectRow(CVBrowserDelegate::ArtistColumn, 1);
    settle();
    save(window, u"tv-shows"_s);
    browser->setMediaFilter(u"All"_s);
    browser->selectRow(CVBrowserDelegate::ArtistColumn, 0);
    browser->setSpanFilter(u"All Spanned"_s);
    settle();

    // The information panel on a spanned track when there is one.
    CVTrackListModel *tracks = browser->trackModel();
    int row = 0;
    for (int r = 0; r < tracks->rowCount(); ++r)
        if (tracks->track(r)->flag(CVAttr::ItemIsSpanned)) {
            row = r;
            break;
        }
    if (tracks->rowCount() > 0) {
        window->trackView->selectRow(row);
        window->trackView->scrollTo(tracks->index(row, 0));
        CVItemInformationDelegate *info = delegate->itemInformationDelegate();
        info->showItemInfoWindow();
        info->window()->resize(560, 520);
        info->setInfoSectionAction(CVItemInformationDelegate::TrackSection);
        settle();
        save(info->window(), u"information-track"_s);
        info->setInfoSectionAction(CVItemInformationDelegate::SpanSection);
        settle();
        save(info->window(), u"information-span"_s);
        info->window()->hide();
    }
    browser->setSpanFilter(u"All Tracks"_s);

    const QPalette light = QApplication::palette();
    QApplication::setPalette(darkPalette());
    settle();
    save(window, u"main-dark"_s);
    QApplication::setPalette(light);
    settle();
    takeRunShots();
}

void CVScreenshots::saveLightAndDark(QWidget *widget, const QString &name)
{
    settle();
    save(widget, name);
    const QPalette light = QApplication::palette();
    QApplication::setPalette(darkPalette());
    settle();
    save(widget, name + u"-dark"_s);
    QApplication::setPalette(light);
    settle();
}

void CVScreenshots::saveWithSheet(const QString &name)
{
    CVMainWindow *window = m_app->windowDelegate()->corvanaWindow();
    QMessageBox *box = nullptr;
    for (QMessageBox *candidate : window->findChildren<QMessageBox *>())
        if (candidate->isVisible())
            box = candidate;
    if (!box) {
        ++m_failures;
        std::fprintf(stderr, "no sheet to show for %s\n", qUtf8Printable(name));
        return;
    }
    settle();
    QPixmap shot = window->grab();
    const QPixmap sheet = box->grab();
    QPainter p(&shot);
    p.setRenderHint(QPainter::Antialiasing);
    // The sheet hangs from under the menu bar, with a soft shadow.
    const QPoint at((window->width() - sheet.width()) / 2, window->menuBar()->height());
    for (int i = 8; i > 0; --i)
        p.fillRect(QRect(at, sheet.size()).adjusted(-i, 0, i, i), QColor(0, 0, 0, 6));
    p.drawPixmap(at, sheet);
    p.end();
    savePixmap(shot, name);
}

void CVScreenshots::takeRunShots()
{
    CVWindowDelegate *delegate = m_app->windowDelegate();
    CVMainWindow *window = delegate->corvanaWindow();
    QApplication::setActiveWindow(window);
    delegate->windowDidBecomeMain();
    CVSheetPresenter *presenter = m_app->presenter();
    CVMediaSpanner *spanner = m_app->spanner();
    // A library without its files (the large generated one) shows no run.
    const CVTrackList music
        = m_app->libraryManager()->selectPredicate(CVPredicate::fromText(u"( MediaType == 'Music' )"_s));
    if (!music || music->tracks.empty() || !QFileInfo::exists(music->tracks.front()->text(CVAttr::Location))) {
        m_app->terminate();
        return;
    }
    // The demo's home is a copy made for the pictures; its files may be moved.
    spanner->setAllowRoot(true);
    const QString location = QDir::home().filePath(u"Backup/Spanned Media"_s);
    QDir().mkpath(location);
    delegate->browserDelegate()->setMediaFilter(u"Music"_s);
    delegate->performDrop(CVPredicate::fromText(u"( MediaType == 'Music' )"_s));
    delegate->setSpanLocation(location, false);
    settle();
    saveLightAndDark(window, u"queue"_s);

    // One track whose file is gone, so that the results show a failure too.
    const QList<CVTrack *> queued(delegate->spanQueue().cbegin(), delegate->spanQueue().cend());
    if (!queued.isEmpty())
        QFile::remove(queued.constLast()->text(CVAttr::Location));
    // Real boxes from here: the sheets are pictured.
    presenter->setAnswering(false);
    delegate->spanLibrary();
    presenter->answerSheet(CVPresenter::OtherReturn); // "Span Anyway"
    saveWithSheet(u"confirm"_s);

    // A third of the way through, the run waits while it is pictured (long enough for a rate).
    const int target = qMax(1, int(queued.size()) / 3);
    connect(
        spanner, &CVMediaSpanner::fileCopied, this,
        [this, target, delegate, window](qint64) {
            if (++m_copies != target)
                return;
            QThread::msleep(2500);
            QMetaObject::invokeMethod(
                this,
                [this, delegate, window] {
                    delegate->runProgress()->flush();
                    saveLightAndDark(window, u"spanning"_s);
                },
                Qt::BlockingQueuedConnection);
        },
        Qt::DirectConnection);
    connect(
        spanner, &CVMediaSpanner::runFinished, this, [this] { takeResultsShots(); }, Qt::QueuedConnection);
    presenter->answerSheet(CVPresenter::DefaultReturn);
    presenter->setAnswering(true);
}

void CVScreenshots::takeResultsShots()
{
    CVWindowDelegate *delegate = m_app->windowDelegate();
    CVMainWindow *window = delegate->corvanaWindow();
    settle();
    saveLightAndDark(window, u"results"_s);
    takeSettingsShots();
    // A run is over: quit the normal way.
    m_app->terminate();
}

void CVScreenshots::takeSettingsShots()
{
    CVWindowDelegate *delegate = m_app->windowDelegate();
    delegate->showPreferences();
    CVPrefsWindowController *prefs = delegate->prefsWindow();
    const QStringList names { u"prefs-general"_s, u"prefs-advanced"_s, u"prefs-updating"_s, u"prefs-helper"_s };
    for (int pane = 0; pane < names.size(); ++pane) {
        prefs->showPane(pane);
        prefs->adjustSize();
        saveLightAndDark(prefs, names[pane]);
    }
    prefs->hide();

    delegate->showColumnDisplayOptions();
    CVColumnDisplayOptionDelegate *columns = delegate->columnDisplayOptions();
    columns->tokenView->setCurrentIndex(columns->model()->index(1));
    saveLightAndDark(columns, u"column-options"_s);
    columns->hide();

    delegate->showHelp(u"helper.html"_s);
    delegate->helpWindow()->resize(640, 520);
    settle();
    save(delegate->helpWindow(), u"help"_s);
    delegate->helpWindow()->hide();
    delegate->showAbout();
    settle();
    save(delegate->aboutWindow(), u"about"_s);
    delegate->aboutWindow()->hide();
}
