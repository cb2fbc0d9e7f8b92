// The search and the filter path bar of CVWindowDelegate.
#include "CVWindowDelegate.h"

#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSpanQueue.h"
#include "Platform/CVSettings.h"
#include "Views/CVFilterPathBar.h"
#include "Views/CVFilterPathPopover.h"

#include <QAction>
#include <QLineEdit>
#include <QModelIndex>
#include <QSignalBlocker>

using namespace Qt::StringLiterals;

void CVWindowDelegate::doFilterSourcesWithSearch(const std::optional<QString> &text)
{
    if (text) {
        QLineEdit *field = m_window->searchField;
        if (*text != field->text()) {
            const QSignalBlocker block(field);
            field->setText(*text);
        }
        if (!text->isEmpty()) {
            m_recentSearches.removeAll(*text);
            m_recentSearches.prepend(*text);
            m_recentSearchesWrite.start(); // a newer search within the delay replaces this write
        }
        m_selection->setSearchText(*text);
    } else {
        m_selection->searchFieldsChanged();
    }
}

void CVWindowDelegate::focusSearch()
{
    m_window->searchField->setFocus(Qt::ShortcutFocusReason);
    m_window->searchField->selectAll();
}

void CVWindowDelegate::editSearchFields(const QString &field, bool on)
{
    // The menu's order is the fields' order; the list keeps at least one field.
    QStringList fields;
    for (const QString &name : { u"Genre"_s, u"Artist"_s, u"Album"_s, u"Name"_s }) {
        const bool chosen
            = name == field ? on : m_settings->stringListValue(CVSettingsKey::SearchFields).contains(name);
        if (chosen)
            fields.append(name);
    }
    if (fields.isEmpty()) {
        fields.append(u"Name"_s);
        const QSignalBlocker block(m_window->action(u"searchFieldName"_s));
        m_window->action(u"searchFieldName"_s)->setChecked(true);
    }
    m_settings->setValue(CVSettingsKey::SearchFields, fields);
}

void CVWindowDelegate::searchFieldsChanged()
{
    const QStringList fields = m_settings->stringListValue(CVSettingsKey::SearchFields);
    for (const QString &field : { u"Genre"_s, u"Artist"_s, u"Album"_s, u"Name"_s }) {
        QAction *a = m_window->action(u"searchField"_s + field);
        const QSignalBlocker block(a);
        a->setChecked(fields.contains(field));
    }
}

QString CVWindowDelegate::filterDescription(const QString &name, bool *inForce) const
{
    const CVSelectionModel *s = m_selection;
    if (name == u"Search"_s) {
        *inForce = !s->searchText().isEmpty();
        return *inForce ? s->searchText() : u"No Search Query"_s;
    }
    if (name == u"Span Filter"_s) {
        *inForce = s->spanFilter() != u"All Tracks"_s;
        return *inForce ? s->spanFilter() : u"All Tracks"_s;
    }
    if (name == u"Media Type"_s) {
        *inForce = s->media() != u"."_s;
        return *inForce ? s->media() : u"All"_s;
    }
    if (name == u"Location"_s) {
        *inForce = s->hasLocation();
        return *inForce ? s->locationTitle() : u"None Selected"_s;
    }
    if (name == u"Playlist"_s) {
        *inForce = s->hasPlaylist();
        return *inForce ? s->playlistName() : u"None Selected"_s;
    }
    *inForce = false;
    return {};
}

void CVWindowDelegate::refreshFilterPathBar()
{
    const bool browsing = m_selection->isBrowsingQueue();
    const QString source = browsing ? u"Spanning Queue"_s : u"Library"_s;
    const QString sourceTitle = u"Browsing %1"_s.arg(source);
    const QString browse = browsing ? u"Browse Library"_s
        : m_queue->isEmpty()        ? u"Span Queue Empty"_s
                                    : u"Browse Span Queue"_s;
    CVFilterPathPopover *popover = m_window->filterPathPopover;
    popover->setSourceRow(sourceTitle, browse, browsing || !m_queue->isEmpty());
    QAction *browseItem = m_window->action(u"browseQueue"_s);
    browseItem->setText(browsing ? u"Browse Library"_s : u"Browse Spanning Queue"_s);
    browseItem->setEnabled(browsing || !m_queue->isEmpty());

    QStringList elements { source };
    const QStringList order = m_settings->stringListValue(CVSettingsKey::FilterPathOrder);
    for (int i = 0; i < order.size() && i < CVFilterPathPopover::FilterRows; ++i) {
        bool inForce = false;
        const QString description = filterDescription(order[i], &inForce);
        popover->setFilterRow(i + 1, order[i] + u':', description, inForce);
        if (inForce)
            elements.append(u"%1 : %2"_s.arg(order[i], description));
    }
    const QString separator = u"   \u25B8   "_s;
    QString one, two;
    const qsizetype n = elements.size();
    if (n <= 3) {
        one = sourceTitle;
        two = n == 1 ? u"All Tracks"_s : elements.mid(1).join(separator);
    } else if (n == 4) {
        one = elements.mid(0, 2).join(separator);
        two = elements.mid(2).join(separator);
    } else {
        one = elements.mid(0, 3).join(separator);
        two = elements.mid(3).join(separator);
    }
    if (m_mouseOverFilterPathBar)
        two = u"Click to Modify Filters"_s;
    m_window->filterPathBar->setLines(one, two);
}

void CVWindowDelegate::setIsMouseOverFilterPathBar(bool over)
{
    m_mouseOverFilterPathBar = over;
    refreshFilterPathBar();
}

void CVWindowDelegate::filterPathMenuItemAction(int tag, int segment)
{
    const QStringList order = m_settings->stringListValue(CVSettingsKey::FilterPathOrder);
    if (tag == 0) {
        if (segment == 0)
            browseSpanningQueue(true);
        else
            for (const QString &name : order)
                clearFilter(name);
        return;
    }
    const QString name = order.value(tag - 1);
    const bool last = tag == CVFilterPathPopover::FilterRows;
    switch (segment) {
    case 0:
        clearFilter(name);
        break;
    case 1:
        if (last) {
            moveFilter(name, -1);
        } else {
            for (int i = tag; i < order.size(); ++i)
                clearFilter(order[i]);
        }
        break;
    case 2:
        moveFilter(name, tag == 1 ? 1 : -1);
        break;
    case 3:
        moveFilter(name, 1);
        break;
    default:
        break;
    }
}

void CVWindowDelegate::clearFilter(const QString &name)
{
    // The panes follow the model: the buttons, the rows and the search field show it.
    if (name == u"Search"_s)
        doFilterSourcesWithSearch(u""_s);
    else if (name == u"Span Filter"_s)
        m_selection->setSpanFilter(u"All Tracks"_s);
    else if (name == u"Media Type"_s)
        m_selection->setMedia(u"All"_s);
    else if (name == u"Location"_s)
        m_selection->setLocation({}, {});
    else if (name == u"Playlist"_s)
        m_selection->setPlaylist({}, {}, CVPredicate::fromText({}));
}

void CVWindowDelegate::moveFilter(const QString &name, int offset)
{
    QStringList order = m_settings->stringListValue(CVSettingsKey::FilterPathOrder);
    const qsizetype at = order.indexOf(name);
    if (at < 0)
        return;
    order.removeAt(at);
    order.insert(qBound<qsizetype>(0, at + offset, order.size()), name);
    m_settings->setValue(CVSettingsKey::FilterPathOrder, order);
    m_settings->synchronize();
    refreshFilterPathBar();
}
