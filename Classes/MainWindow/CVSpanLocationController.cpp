#include "MainWindow/CVSpanLocationController.h"

#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpanChecks.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"
#include "Platform/CVVolumes.h"
#include "Views/CVIcons.h"
#include "Views/CVSpanLocationView.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QMenu>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kHistoryLength = 5;
// The widest the history menu grows; longer titles are shortened in the middle.
constexpr int kHistoryMenuWidth = 688;

// The menu's fonts: the entries a size larger than the notes around them (13 and 11 points of
// the design, relative to the desktop's menu font).
QFont menuFont(const QMenu *menu, bool entry)
{
    QFont font = menu->font();
    font.setBold(true);
    if (!entry)
        font.setPointSizeF(font.pointSizeF() * 11.0 / 13.0);
    return font;
}

} // namespace

CVSpanLocationController::CVSpanLocationController(CVSettings *settings, CVLibraryManager *library,
    CVSheetPresenter *presenter, CVSpanLocationView *view, QWidget *dialogParent, Context context, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_library(library)
    , m_presenter(presenter)
    , m_view(view)
    , m_dialogParent(dialogParent)
    , m_context(std::move(context))
{
    connect(view, &CVSpanLocationView::clicked, this, [this] {
        if (!m_context.restoreMode())
            chooseSpanLocation();
    });
    connect(view, &CVSpanLocationView::historyMenuRequested, this,
        &CVSpanLocationController::popUpSpanLocationsHistoryMenu);
    connect(
        view, &CVSpanLocationView::contextMenuRequested, this, &CVSpanLocationController::showSpanLocationContextMenu);
    connect(view, &CVSpanLocationView::folderDropped, this, &CVSpanLocationController::spanLocationDropped);
}

CVSpanLocationController::~CVSpanLocationController() = default;

void CVSpanLocationController::setSpanLocation(const QString &path, bool checkIt)
{
    if (m_context.crashedWhileSpanning() && !m_spanLocation.isEmpty())
        return;
    m_spanLocation
        = path == u"/Network"_s || path == u"/Volumes"_s || CVVolumes::isDriveContainer(path) ? QString() : path;
    reloadSpanLocatonInformation();
    Q_EMIT locationChanged(m_spanLocation);
    if (m_settings->boolValue(CVSettingsKey::AutosaveSpanLocation)) {
        m_settings->setValue(
            CVSettingsKey::SavedSpanLocation, m_context.restoreMode() ? u"CVRestoreMode"_s : m_spanLocation);
        m_settings->synchronize();
    }
    if (!checkIt || m_spanLocation.isEmpty() || !m_context.spanner())
        return;
    // The advice about a newly chosen folder; each answer is final (no second check).
    const CVSpanChecks checks(*m_context.spanner(), *m_library);
    const CVSpanChecks::LocationCheck check = checks.checkSpanLocation(m_spanLocation, m_library->getBaseSpanPaths(),
        m_library->iTunesMediaPath().value_or(QString()), m_settings->stringValue(CVSettingsKey::StartupDriveName));
    if (check.advice == CVSpanChecks::Advice::None)
        return;
    const QString location = m_spanLocation;
    const QString previous = check.previousLocation;
    const int advice = int(check.advice);
    m_presenter->beginSheet(check.alert, [this, advice, location, previous](int returnCode) {
        didEndSpanLocationCheckSheet(advice, returnCode, location, previous);
    });
}

void CVSpanLocationController::didEndSpanLocationCheckSheet(
    int advice, int returnCode, const QString &location, const QString &previous)
{
    using A = CVSpanChecks::Advice;
    const auto chooseAgain = [this] {
        clearSpanLocation();
        chooseSpanLocation();
    };
    switch (A(advice)) {
    case A::Unusable:
        chooseAgain();
        break;
    case A::DriveRoot:
        if (returnCode == CVPresenter::DefaultReturn) {
            // A folder that cannot be made leaves the location on the drive's root.
            const QString folder = location + u"/Spanned Media"_s;
            if (!QDir().mkpath(folder))
                CVLog::log(u"Could not create %1"_s.arg(folder));
            if (QFileInfo(folder).isDir())
                setSpanLocation(folder, false);
        } else if (returnCode == CVPresenter::AlternateReturn) {
            chooseAgain();
        }
        break;
    case A::PreviouslyUsed:
        if (returnCode == CVPresenter::DefaultReturn)
            setSpanLocation(previous, false);
        break;
    case A::InsideMediaFolder:
        if (returnCode == CVPresenter::DefaultReturn)
            setSpanLocation(m_library->iTunesMediaPath().value_or(QString()), false);
        else
            chooseAgain();
        break;
    case A::StartupDrive:
        if (returnCode == CVPresenter::DefaultReturn)
            chooseAgain();
        break;
    case A::None:
        break;
    }
}

void CVSpanLocationController::reloadSpanLocatonInformation()
{
    CVSpanLocationView *view = m_view;
    view->setLocationName(m_library->createDisplayTitleForPath(m_spanLocation));
    if (m_spanLocation.isEmpty())
        view->setLocationIcon({});
    else if (QFileInfo::exists(m_spanLocation))
        view->setLocationIcon(QFileIconProvider().icon(QFileInfo(m_spanLocation)));
    else
        view->setLocationIcon(CVIcons::icon(CVIcons::Kind::QuestionMark));
}

void CVSpanLocationController::chooseSpanLocation()
{
    if (m_context.crashedWhileSpanning() || m_context.restoreMode() || !m_context.mainViewVisible())
        return;
    if (QApplication::keyboardModifiers() & Qt::AltModifier) {
        clearSpanLocation();
        return;
    }
    QString start;
    if (!m_spanLocation.isEmpty())
        start = CVVolumes::isDriveRoot(m_spanLocation) ? m_spanLocation : QFileInfo(m_spanLocation).path();
    auto *dialog = new QFileDialog(m_dialogParent, u"Choose Span Location"_s, start);
    dialog->setObjectName(u"CVSpanLocationChooser"_s);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setLabelText(QFileDialog::Accept, u"Choose"_s);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString &folder) {
        if (!folder.isEmpty())
            setSpanLocation(QDir::cleanPath(folder), true);
    });
    dialog->open();
}

void CVSpanLocationController::changeSpanLocationWithConfirmation(const QString &path)
{
    if (m_spanLocation.isEmpty()) {
        setSpanLocation(path, true);
        return;
    }
    if (path == m_spanLocation)
        return;
    CVAlert alert;
    alert.title = u"\nAre you sure you want to change the current span location?"_s;
    alert.defaultButton = u"Select '%1'"_s.arg(m_library->createDisplayTitleForPath(path));
    alert.alternateButton = u"Keep '%1'"_s.arg(m_library->createDisplayTitleForPath(m_spanLocation));
    m_presenter->beginSheet(alert, [this, path](int returnCode) {
        if (returnCode == CVPresenter::DefaultReturn)
            setSpanLocation(path, true);
    });
}

void CVSpanLocationController::spanLocationDropped(const QString &path)
{
    if (m_context.restoreMode() || m_context.crashedWhileSpanning() || path.isEmpty())
        return;
    setSpanLocation(path, true);
}

// ---- The history -------------------------------------------------------------------------

QStringList CVSpanLocationController::spanLocationHistory() const
{
    return m_settings->stringListValue(CVSettingsKey::SpanLocationHistory).mid(0, kHistoryLength);
}

void CVSpanLocationController::addLocationToHistory(const QString &path)
{
    if (path.isEmpty())
        return;
    QStringList history = m_settings->stringListValue(CVSettingsKey::SpanLocationHistory);
    history.removeAll(path);
    history.prepend(path);
    m_settings->setValue(CVSettingsKey::SpanLocationHistory, history.mid(0, kHistoryLength));
}

void CVSpanLocationController::addOrRemoveLocationToHistory()
{
    if (m_spanLocation.isEmpty())
        return;
    QStringList history = m_settings->stringListValue(CVSettingsKey::SpanLocationHistory);
    if (history.contains(m_spanLocation)) {
        history.removeAll(m_spanLocation);
        m_settings->setValue(CVSettingsKey::SpanLocationHistory, history);
    } else {
        addLocationToHistory(m_spanLocation);
    }
}

void CVSpanLocationController::setSpanLocationFromHistory(const QString &path)
{
    // With Alt held an entry leaves the history instead.
    if (QApplication::keyboardModifiers() & Qt::AltModifier) {
        QStringList history = m_settings->stringListValue(CVSettingsKey::SpanLocationHistory);
        history.removeAll(path);
        m_settings->setValue(CVSettingsKey::SpanLocationHistory, history);
        return;
    }
    if (m_context.restoreMode() || m_context.crashedWhileSpanning())
        return;
    setSpanLocation(path, false);
}

void CVSpanLocationController::clearSpanLocationHistory()
{
    CVAlert alert;
    alert.title = u"\nAre you sure you want to clear the span location history?"_s;
    alert.defaultButton = u"Clear"_s;
    alert.alternateButton = u"Cancel"_s;
    m_presenter->beginSheet(alert, [this](int returnCode) {
        if (returnCode == CVPresenter::DefaultReturn)
            m_settings->remove(CVSettingsKey::SpanLocationHistory);
    });
}

void CVSpanLocationController::fillSpanLocationsHistoryMenu(QMenu *menu)
{
    menu->clear();
    menu->setMaximumWidth(kHistoryMenuWidth);
    const bool option = QApplication::keyboardModifiers() & Qt::AltModifier;
    const QStringList history = spanLocationHistory();
    const QFontMetrics metrics(menuFont(menu, true));
    for (const QString &path : history) {
        const bool exists = QFileInfo::exists(path);
        const QIcon icon
            = exists ? QFileIconProvider().icon(QFileInfo(path)) : CVIcons::icon(CVIcons::Kind::QuestionMark);
        const QString title = u" "_s + m_library->createDisplayTitleForPath(path);
        QAction *entry = menu->addAction(icon, metrics.elidedText(title, Qt::ElideMiddle, kHistoryMenuWidth - 80));
        entry->setFont(menuFont(menu, true));
        entry->setData(path);
        entry->setToolTip(path);
        entry->setEnabled(exists || option);
        connect(entry, &QAction::triggered, this, [this, path] { setSpanLocationFromHistory(path); });
    }
    if (history.isEmpty()) {
        QAction *none = menu->addAction(u"No Recent Span Locations"_s);
        none->setFont(menuFont(menu, false));
        none->setEnabled(false);
    }
    menu->addSeparator();
    QAction *clear = menu->addAction(u"Clear Location History…"_s);
    clear->setFont(menuFont(menu, false));
    clear->setEnabled(!history.isEmpty());
    connect(clear, &QAction::triggered, this, &CVSpanLocationController::clearSpanLocationHistory);
}

void CVSpanLocationController::popUpSpanLocationsHistoryMenu(const QPoint &globalPosition)
{
    if (m_context.restoreMode() || m_context.crashedWhileSpanning())
        return;
    // Ctrl held: the current location goes to the front of the history first.
    if ((QApplication::keyboardModifiers() & Qt::ControlModifier) && QFileInfo::exists(m_spanLocation))
        addLocationToHistory(m_spanLocation);
    QMenu menu(m_dialogParent);
    fillSpanLocationsHistoryMenu(&menu);
    menu.exec(globalPosition);
}

void CVSpanLocationController::showLocationInFinder()
{
    if (m_spanLocation.isEmpty())
        return;
    // The folder selected in a viewer of the folder that holds it.
    CVFileManagerLink *files = m_context.fileManager ? m_context.fileManager() : nullptr;
    if (!files || !files->selectFile(m_spanLocation))
        CVLog::log(u"Corvana ScriptingBridge Error: the file manager could not show %1"_s.arg(m_spanLocation));
}

void CVSpanLocationController::fillSpanLocationContextMenu(QMenu *menu)
{
    menu->clear();
    connect(menu->addAction(u"Show in File Manager"_s), &QAction::triggered, this,
        &CVSpanLocationController::showLocationInFinder);
    connect(menu->addAction(u"Clear Location"_s), &QAction::triggered, this, [this] { clearSpanLocation(); });
    menu->addSeparator();
    const bool inHistory = m_settings->stringListValue(CVSettingsKey::SpanLocationHistory).contains(m_spanLocation);
    connect(menu->addAction(inHistory ? u"Remove from Location History"_s : u"Add to Location History"_s),
        &QAction::triggered, this, &CVSpanLocationController::addOrRemoveLocationToHistory);
}

void CVSpanLocationController::showSpanLocationContextMenu(const QPoint &globalPosition)
{
    if (m_context.restoreMode() || m_context.crashedWhileSpanning())
        return;
    if (m_spanLocation.isEmpty()) {
        popUpSpanLocationsHistoryMenu(globalPosition);
        return;
    }
    QMenu menu(m_dialogParent);
    fillSpanLocationContextMenu(&menu);
    menu.exec(globalPosition);
}
