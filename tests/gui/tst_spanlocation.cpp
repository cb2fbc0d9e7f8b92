// The span location: what may be one, the advice about a newly chosen folder and each answer,
// the folder chooser, a folder dropped from the file manager, the history of five with its menu,
// the context menu, and the location and mode kept across starts.
#include "CVSheetAnswer.h"
#include "CVTestMounts.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVSpanLocationController.h"
#include "Platform/CVSettings.h"
#include "Views/CVSpanLocationView.h"

#include <QAction>
#include <QFileDialog>
#include <QMenu>
#include <QMimeData>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

bool dropOn(CVSpanLocationView *view, const QList<QUrl> &urls)
{
    QMimeData mime;
    mime.setUrls(urls);
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(view, &enter);
    if (!enter.isAccepted())
        return false;
    QDropEvent dropped(QPointF(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(view, &dropped);
    return dropped.isAccepted();
}

QFileDialog *openChooser(CVWindowDelegate *window)
{
    for (QFileDialog *dialog : window->corvanaWindow()->findChildren<QFileDialog *>())
        if (dialog->isVisible())
            return dialog;
    return nullptr;
}

} // namespace

class TestSpanLocation : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void containersAreNoLocation();
    void adviceAndAnswers_data();
    void adviceAndAnswers();
    void driveRootAdvice_data();
    void driveRootAdvice();
    void chooserStartsBesideTheLocationAndChecksTheChoice();
    void droppedFolderIsChosenAndChecked();
    void historyKeepsFiveAndItsMenu();
    void contextMenuOfALocation();
    void locationAndModeAcrossStarts();
};

void TestSpanLocation::containersAreNoLocation()
{
    CVWindowSession session({ .tracks = 30 });
    CVWindowDelegate *window = session.app().windowDelegate();
    for (const QString &path : { u"/Volumes"_s, u"/Network"_s, u"/media"_s, u"/mnt"_s, u"/run/media/someone"_s }) {
        window->setSpanLocation(path, false);
        QVERIFY2(window->spanLocation().isEmpty(), qPrintable(path));
    }
    QCOMPARE(window->corvanaWindow()->spanLocationView->locationName(), window->spanLocation());
    // A folder that is gone shows with the question mark and is kept.
    window->setSpanLocation(session.home.filePath(u"Gone"_s), false);
    QCOMPARE(window->spanLocation(), session.home.filePath(u"Gone"_s));
    QCOMPARE(window->corvanaWindow()->spanLocationView->locationName(), u"Gone (on Computer)"_s);
}

void TestSpanLocation::adviceAndAnswers_data()
{
    QTest::addColumn<QString>("where"); // relative to home, or "/" for the startup drive
    QTest::addColumn<QString>("title");
    QTest::addColumn<int>("answer");
    QTest::addColumn<QString>("after"); // relative to home; "" no location; "/" itself
    QTest::addColumn<bool>("chooser");
    const QString media = u"Music/iTunes/iTunes Media"_s;
    QTest::newRow("cannot be written to") << u"Missing/Folder"_s << u"\nCannot span to selected location."_s
                                          << int(CVPresenter::DefaultReturn) << u""_s << true;
    QTest::newRow("inside a used location, select it")
        << u"Films/Inside"_s << u"\nIt is not recommended to span within a previously used span location."_s
        << int(CVPresenter::DefaultReturn) << u"Films"_s << false;
    QTest::newRow("inside a used location, keep")
        << u"Films/Inside"_s << u"\nIt is not recommended to span within a previously used span location."_s
        << int(CVPresenter::AlternateReturn) << u"Films/Inside"_s << false;
    QTest::newRow("the used location itself") << u"Films"_s << QString() << 0 << u"Films"_s << false;
    QTest::newRow("inside the media folder, select it")
        << media + u"/Inside"_s << u"\nLocation cannot be within the default iTunes Media location."_s
        << int(CVPresenter::DefaultReturn) << media << false;
    QTest::newRow("inside the media folder, choose again")
        << media + u"/Inside"_s << u"\nLocation cannot be within the default iTunes Media location."_s
        << int(CVPresenter::AlternateReturn) << u""_s << true;
    QTest::newRow("the media folder itself") << media << QString() << 0 << media << false;
    QTest::newRow("startup drive, keep") << u"/"_s
                                         << u"It is not recommended to span directly onto your startup drive."_s
                                         << int(CVPresenter::OtherReturn) << u"/"_s << false;
    QTest::newRow("startup drive, choose again")
        << u"/"_s << u"It is not recommended to span directly onto your startup drive."_s
        << int(CVPresenter::DefaultReturn) << u""_s << true;
}

void TestSpanLocation::adviceAndAnswers()
{
    QFETCH(QString, where);
    QFETCH(QString, title);
    QFETCH(int, answer);
    QFETCH(QString, after);
    QFETCH(bool, chooser);
    CVWindowSession session({ .tracks = 40, .start = false });
    // Films is a location an earlier run used.
    QVERIFY(!session.spanBeforeStart(u"( MediaType == 'Movies' )"_s, session.home.filePath(u"Films"_s)).isEmpty());
    session.awake();
    session.launch();
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    const auto path = [&](const QString &relative) {
        return relative.isEmpty() || relative == u"/"_s ? relative : session.home.filePath(relative);
    };
    if (!where.startsWith(u"Missing"_s) && where != u"/"_s)
        QVERIFY(QDir().mkpath(path(where)));
    window->setSpanLocation(path(where), true);
    if (title.isEmpty()) {
        QVERIFY(!presenter->hasOpenSheet());
    } else {
        QCOMPARE(presenter->openSheet().title, title);
        if (where == u"/"_s)
            QCOMPARE(presenter->openSheet().otherButton, u"Keep 'Computer'"_s);
        presenter->answerSheet(answer);
    }
    QCOMPARE(window->spanLocation(), path(after));
    QFileDialog *dialog = openChooser(window);
    QCOMPARE(dialog != nullptr, chooser);
    if (dialog)
        dialog->reject();
    // An answer's location is not checked again.
    QVERIFY(!presenter->hasOpenSheet());
}

void TestSpanLocation::driveRootAdvice_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<QString>("after");
    QTest::addColumn<bool>("chooser");
    QTest::newRow("Select 'Spanned Media'") << int(CVPresenter::DefaultReturn) << u"/Spanned Media"_s << false;
    QTest::newRow("Choose New Location") << int(CVPresenter::AlternateReturn) << QString() << true;
    QTest::newRow("Keep the drive") << int(CVPresenter::OtherReturn) << u""_s << false;
}

void TestSpanLocation::driveRootAdvice()
{
    QFETCH(int, answer);
    QFETCH(QString, after);
    QFETCH(bool, chooser);
    if (!CVTestMounts::available())
        QSKIP(qPrintable(u"a drive is needed: "_s + CVTestMounts::unavailableReason()));
    const QString drive = CVTestMounts::makeTmpfsDrive(u"Archive"_s, "size=1m,mode=0755").root;
    QVERIFY(!drive.isEmpty());
    const auto unmount = qScopeGuard([] { CVTestMounts::removeDrives(); });
    CVWindowSession session({ .tracks = 30 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    window->setSpanLocation(drive, true);
    QCOMPARE(presenter->openSheet().title, u"It is recommended that you span to a subfolder on any drive."_s);
    QVERIFY(presenter->openSheet().text.endsWith(u"the folder 'Spanned Media' on 'Archive'?"_s));
    QCOMPARE(presenter->openSheet().defaultButton, u"Select 'Spanned Media'"_s);
    QCOMPARE(presenter->openSheet().alternateButton, u"Choose New Location"_s);
    QCOMPARE(presenter->openSheet().otherButton, u"Keep 'Archive'"_s);
    presenter->answerSheet(answer);
    QCOMPARE(window->spanLocation(), after.isNull() ? QString() : drive + after);
    QFileDialog *dialog = openChooser(window);
    QCOMPARE(dialog != nullptr, chooser);
    if (dialog) {
        // The chooser opens on the drive's root, the location's own folder.
        dialog->reject();
    }
    // A folder one level below the root is no drive root.
    QDir().mkpath(drive + u"/Music"_s);
    window->setSpanLocation(drive + u"/Music"_s, true);
    QVERIFY(!presenter->hasOpenSheet());
}

void TestSpanLocation::chooserStartsBesideTheLocationAndChecksTheChoice()
{
    CVWindowSession session({ .tracks = 30 });
    CVWindowDelegate *window = session.app().windowDelegate();
    const QString parent = session.home.filePath(u"Drives"_s);
    QDir().mkpath(parent + u"/One"_s);
    window->setSpanLocation(parent + u"/One"_s, false);
    window->corvanaWindow()->action(u"chooseLocation"_s)->trigger();
    QFileDialog *dialog = openChooser(window);
    QVERIFY(dialog);
    QCOMPARE(dialog->windowModality(), Qt::WindowModal);
    QCOMPARE(QDir::cleanPath(dialog->directory().path()), parent);
    QCOMPARE(dialog->fileMode(), QFileDialog::Directory);
    // A choice inside the media folder is checked like any other.
    const QString inside = session.home.filePath(u"Music/iTunes/iTunes Media/Chosen"_s);
    QDir().mkpath(inside);
    Q_EMIT dialog->fileSelected(inside);
    dialog->close();
    QVERIFY(answerSheet(session.app().presenter(), u"\nLocation cannot be within the default iTunes Media location."_s,
        CVPresenter::DefaultReturn));
    // In restore mode the view's clicks choose nothing.
    window->doSetRestoreMode();
    Q_EMIT window->corvanaWindow()->spanLocationView->clicked();
    QVERIFY(!openChooser(window));
}

void TestSpanLocation::droppedFolderIsChosenAndChecked()
{
    CVWindowSession session({ .tracks = 30 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSpanLocationView *view = window->corvanaWindow()->spanLocationView;
    const QString folder = session.home.filePath(u"Dropped"_s);
    QDir().mkpath(folder);
    // A file, a web address, nothing: refused.
    QVERIFY(!dropOn(view, { QUrl::fromLocalFile(session.libraryFile()) }));
    QVERIFY(!dropOn(view, { QUrl(u"https://example.org/"_s) }));
    QVERIFY(!dropOn(view, {}));
    QVERIFY(window->spanLocation().isEmpty());
    // The first entry counts.
    QVERIFY(dropOn(view, { QUrl::fromLocalFile(folder), QUrl::fromLocalFile(session.libraryFile()) }));
    QCOMPARE(window->spanLocation(), folder);
    // Dropped inside the media folder: the advice comes, as for a chosen one.
    const QString inside = session.home.filePath(u"Music/iTunes/iTunes Media/Dropped"_s);
    QDir().mkpath(inside);
    QVERIFY(dropOn(view, { QUrl::fromLocalFile(inside) }));
    QVERIFY(answerSheet(session.app().presenter(), u"\nLocation cannot be within the default iTunes Media location."_s,
        CVPresenter::DefaultReturn));
    // Not in restore mode, and not while a crash is to be recovered.
    window->doSetRestoreMode();
    QVERIFY(!dropOn(view, { QUrl::fromLocalFile(folder) }));
    window->doSetSpanMode();
    view->setRefusesDrops(true);
    QVERIFY(!dropOn(view, { QUrl::fromLocalFile(folder) }));
}

void TestSpanLocation::historyKeepsFiveAndItsMenu()
{
    CVWindowSession session({ .tracks = 30 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    QMenu menu;
    window->spanLocationController()->fillSpanLocationsHistoryMenu(&menu);
    QCOMPARE(menu.actions().size(), 3);
    QCOMPARE(menu.actions()[0]->text(), u"No Recent Span Locations"_s);
    QVERIFY(!menu.actions()[0]->isEnabled());
    QCOMPARE(menu.actions()[2]->text(), u"Clear Location History…"_s);
    QVERIFY(!menu.actions()[2]->isEnabled());

    QStringList folders;
    for (int i = 1; i <= 7; ++i) {
        folders.append(session.home.filePath(u"Place %1"_s.arg(i)));
        QDir().mkpath(folders.last());
        window->setSpanLocation(folders.last(), false);
        window->spanLocationController()->addOrRemoveLocationToHistory();
    }
    // The same again: to the front, never twice.
    window->spanLocationController()->addLocationToHistory(folders[4]);
    const QStringList expected { folders[4], folders[6], folders[5], folders[3], folders[2] };
    QCOMPARE(window->spanLocationController()->spanLocationHistory(), expected);
    QCOMPARE(session.app().settings()->stringListValue(CVSettingsKey::SpanLocationHistory), expected);
    // In the history: the context menu offers to remove it.
    window->setSpanLocation(folders[6], false);
    window->spanLocationController()->addOrRemoveLocationToHistory();
    QVERIFY(!window->spanLocationController()->spanLocationHistory().contains(folders[6]));

    QDir(folders[2]).removeRecursively();
    window->spanLocationController()->fillSpanLocationsHistoryMenu(&menu);
    QCOMPARE(menu.actions().size(), 4 + 2);
    QCOMPARE(menu.actions()[0]->text(), u" Place 5 (on Computer)"_s);
    QVERIFY(menu.actions()[0]->font().bold());
    QVERIFY(menu.actions()[0]->isEnabled());
    QVERIFY(!menu.actions()[3]->isEnabled()); // the folder that is gone
    QVERIFY(menu.maximumWidth() <= 688);
    // An entry is taken as it is, without advice.
    window->clearSpanLocation();
    menu.actions()[1]->trigger();
    QCOMPARE(window->spanLocation(), folders[5]);
    QVERIFY(!presenter->hasOpenSheet());

    menu.actions().constLast()->trigger();
    QVERIFY(answerSheet(
        presenter, u"\nAre you sure you want to clear the span location history?"_s, CVPresenter::AlternateReturn));
    QCOMPARE(window->spanLocationController()->spanLocationHistory().size(), 4);
    menu.actions().constLast()->trigger();
    presenter->answerSheet(CVPresenter::DefaultReturn);
    QVERIFY(!session.app().settings()->contains(CVSettingsKey::SpanLocationHistory));
}

void TestSpanLocation::contextMenuOfALocation()
{
    CVWindowSession session({ .tracks = 30 });
    CVWindowDelegate *window = session.app().windowDelegate();
    const QString folder = session.home.filePath(u"Here"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    QMenu menu;
    window->spanLocationController()->fillSpanLocationContextMenu(&menu);
    QStringList titles;
    for (QAction *a : menu.actions())
        if (!a->isSeparator())
            titles.append(a->text());
    QCOMPARE(titles, QStringList({ u"Show in File Manager"_s, u"Clear Location"_s, u"Add to Location History"_s }));
    menu.actions()[3]->trigger();
    QCOMPARE(window->spanLocationController()->spanLocationHistory(), QStringList { folder });
    window->spanLocationController()->fillSpanLocationContextMenu(&menu);
    QCOMPARE(menu.actions()[3]->text(), u"Remove from Location History"_s);
    menu.actions()[1]->trigger();
    QVERIFY(window->spanLocation().isEmpty());
}

void TestSpanLocation::locationAndModeAcrossStarts()
{
    CVWindowSession session({ .tracks = 30 });
    CVWindowDelegate *window = session.app().windowDelegate();
    const QString folder = session.home.filePath(u"Kept"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    QCOMPARE(session.app().settings()->stringValue(CVSettingsKey::SavedSpanLocation), folder);
    session.app().terminate();
    session.restart();
    QCOMPARE(session.app().windowDelegate()->spanLocation(), folder);

    // Restore mode is saved in its place.
    session.app().windowDelegate()->setRestoreMode();
    QCOMPARE(session.app().settings()->stringValue(CVSettingsKey::SavedSpanLocation), u"CVRestoreMode"_s);
    session.app().terminate();
    session.restart();
    QVERIFY(session.app().windowDelegate()->restoreMode());
    QVERIFY(session.app().windowDelegate()->corvanaWindow()->spanLocationView->restoreMode());
    // Without autosaving nothing is kept.
    session.app().settings()->setValue(CVSettingsKey::AutosaveSpanLocation, false);
    QVERIFY(!session.app().settings()->contains(CVSettingsKey::SavedSpanLocation));
    session.app().terminate();
    session.restart();
    QVERIFY(!session.app().windowDelegate()->restoreMode());
    QVERIFY(session.app().windowDelegate()->spanLocation().isEmpty());
}

int main(int argc, char *argv[])
{
    CVTestMounts::enterPrivateMounts();
    QApplication app(argc, argv);
    TestSpanLocation test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_spanlocation.moc"
