// The span filter and the media filter of CVBrowserDelegate.
#include "Browsing/CVBrowserDelegate.h"

#include "Library/CVLibraryManager.h"
#include "MainWindow/CVMainWindow.h"
#include "Platform/CVSettings.h"
#include "Views/CVMediaFilterBar.h"

#include <QLineEdit>
#include <QMenu>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {

QString spanFilterNameIn(const QString &text)
{
    for (const QString &name : CVBrowserDelegate::spanFilterNames())
        if (text.contains(name))
            return name;
    return {};
}

} // namespace

void CVBrowserDelegate::setMediaFilterAction(int buttonIndex)
{
    const QString name = mediaNames().value(buttonIndex);
    setMediaFilter(name);
    if (m_settings->boolValue(CVSettingsKey::RememberLastBrowserMedia))
        m_settings->setValue(CVSettingsKey::DefaultBrowserMedia, name);
}

void CVBrowserDelegate::setMediaFilter(const QString &text)
{
    CVMediaFilterBar *bar = m_window->mediaFilterBar;
    QString media = selectedMedia() == u"."_s ? u"All"_s : selectedMedia();
    for (int i = 0; i < mediaNames().size(); ++i) {
        const QString &name = mediaNames()[i];
        // A media without tracks cannot be chosen.
        if (text.contains(name) && bar->button(i)->isEnabled())
            media = name;
    }
    m_selection->setMedia(media);
    // Shown here too: a change before the main view is up is not announced.
    showMediaFilter();
}

void CVBrowserDelegate::showMediaFilter()
{
    CVMediaFilterBar *bar = m_window->mediaFilterBar;
    const qsizetype current = selectedMedia() == u"."_s ? 0 : mediaNames().indexOf(selectedMedia());
    for (int i = 0; i < mediaNames().size(); ++i)
        bar->button(i)->setChecked(i == current);
}

void CVBrowserDelegate::setSpanFilterAction(QAction *item)
{
    if (item)
        setSpanFilter(item->text());
}

void CVBrowserDelegate::setSpanFilter(const QString &text)
{
    QString name = spanFilterNameIn(text);
    if (name.isEmpty())
        name = text;
    if (name == selectedSpanFilter())
        return;
    m_selection->setSpanFilter(name);
    // Shown here too: a change before the main view is up is not announced.
    showSpanFilter();
}

void CVBrowserDelegate::showSpanFilter()
{
    const QString &name = selectedSpanFilter();
    for (QAction *item : m_window->spanFilterMenu->actions()) {
        if (item->isSeparator())
            continue;
        item->setCheckable(true);
        item->setChecked(spanFilterNameIn(item->text()) == name);
    }
    QToolButton *button = m_window->spanFilterButton;
    const QString title = u"Span Filter: %1"_s.arg(name);
    if (button->text() == title)
        return;
    button->setText(title);
    // 200 points for short titles, 250 once the fitted width passes 210; the search field
    // takes the same width.
    button->setMinimumWidth(0);
    button->setMaximumWidth(QWIDGETSIZE_MAX);
    const int width = button->sizeHint().width() <= 210 ? 200 : 250;
    button->setFixedWidth(width);
    m_window->searchField->setFixedWidth(width);
}

void CVBrowserDelegate::refreshSpanFilters()
{
    QMenu *menu = m_window->spanFilterMenu;
    if (menu->actions().isEmpty()) {
        // The menu's groups: all, spanned, restored, never.
        for (const QString &name : spanFilterNames()) {
            if (name == u"All Spanned"_s || name == u"All Restored"_s || name == u"Never Spanned"_s)
                menu->addSeparator();
            QAction *item = menu->addAction(name);
            item->setCheckable(true);
            item->setChecked(name == selectedSpanFilter());
            // The broad filters keep a shortcut (and so stay in the menu, disabled, at 0).
            static const QHash<QString, QString> shortcuts { { u"All Tracks"_s, u"Ctrl+Alt+0"_s },
                { u"All Spanned"_s, u"Ctrl+Alt+1"_s }, { u"Not Spanned"_s, u"Ctrl+Alt+2"_s },
                { u"All Restored"_s, u"Ctrl+Alt+3"_s } };
            if (shortcuts.contains(name)) {
                item->setShortcut(QKeySequence(shortcuts.value(name)));
                m_window->addAction(item);
            }
            connect(item, &QAction::triggered, this, [this, item] { setSpanFilterAction(item); });
        }
        m_window->spanFilterButton->setText(u"Span Filter: %1"_s.arg(selectedSpanFilter()));
        connect(menu, &QMenu::aboutToShow, this, [this] { refreshSpanFilterCounts(true); });
    }
    refreshSpanFilterCounts(menu->isVisible());
}

void CVBrowserDelegate::refreshSpanFilterCounts(bool everyItem)
{
    // The counts show only in the open menu: while it is closed only the chosen filter is
    // counted (it falls back to "All Tracks" at 0); the rest are counted when the menu opens.
    QMenu *menu = m_window->spanFilterMenu;
    const CVPredicate search = CVPredicate::fromText(m_library->getSearchPredicate());
    const CVPredicate media = m_selection->getMediaTypePredicate();
    const CVPredicate location = m_selection->getLocationPredicate();
    const CVPredicate queue = m_selection->getSpanQueuePredicate();
    const CVPredicate playlist = m_selection->getPlaylistPredicate();
    bool fallBack = false;
    for (QAction *item : menu->actions()) {
        if (item->isSeparator() || item->text().isEmpty())
            continue;
        const QString name = spanFilterNameIn(item->text());
        if (!everyItem && name != selectedSpanFilter())
            continue;
        const CVTrackList tracks = m_library->selectPredicateStack(
            { search, CVPredicate::fromText(getPredicateForSpanFilter(name)), media, location, queue, playlist });
        const int count = int(tracks->tracks.size());
        item->setText(u"%1 (%2)"_s.arg(name).arg(count));
        if (count == 0 && name != u"All Tracks"_s) {
            item->setEnabled(false);
            item->setVisible(!item->shortcut().isEmpty());
            if (name == selectedSpanFilter())
                fallBack = true;
        } else {
            item->setEnabled(true);
            item->setVisible(true);
        }
    }
    if (fallBack)
        setSpanFilter(u"All Tracks"_s);
}

void CVBrowserDelegate::refreshMediaFilters()
{
    CVMediaFilterBar *bar = m_window->mediaFilterBar;
    QList<int> counts;
    bool fallBack = false;
    for (int i = 0; i < mediaNames().size(); ++i) {
        const QString &name = mediaNames()[i];
        // The counting predicate replaces the media entry of the stack; the rest stays in force.
        const QString predicate = u"( MediaType %1 )"_s.arg(name == u"All"_s ? u" != ''"_s : u" == '%1'"_s.arg(name));
        const int count = int(m_library->smartSelectPredicate(CVPredicate::fromText(predicate))->tracks.size());
        counts.append(count);
        const bool enabled = count > 0 || name == u"All"_s;
        bar->button(i)->setEnabled(enabled);
        if (!enabled && selectedMedia() == name)
            fallBack = true;
    }
    bar->setCounts(counts);
    if (fallBack)
        setMediaFilter(u"All"_s);
}

void CVBrowserDelegate::addOrRemoveClickedMediaTypeFromQueue(const QString &title)
{
    QString name;
    for (const QString &candidate : mediaNames())
        if (title.contains(candidate)) {
            name = candidate;
            break;
        }
    if (name.isEmpty())
        return;
    const QString predicate = u"( MediaType %1 )"_s.arg(name == u"All"_s ? u" != ''"_s : u" == '%1'"_s.arg(name));
    Q_EMIT queueMediaRequested(CVPredicate::fromText(predicate), name);
}
