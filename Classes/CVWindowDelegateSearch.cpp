// The search of CVWindowDelegate.
#include "CVWindowDelegate.h"

#include "MainWindow/CVMainWindow.h"
#include "Platform/CVSettings.h"

#include <QAction>
#include <QLineEdit>
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
