#include "Preferences/CVPreferencesPane.h"

#include <QFormLayout>
#include <QLabel>

CVPreferencesPane::CVPreferencesPane(const QString &title, const QIcon &icon, QWidget *parent)
    : QWidget(parent)
    , m_title(title)
    , m_icon(icon)
    , m_form(new QFormLayout(this))
{
    setAccessibleName(title);
    m_form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    m_form->setFormAlignment(Qt::AlignLeft | Qt::AlignTop);
}

void CVPreferencesPane::showEvent(QShowEvent *event)
{
    reloadNibOutlets();
    QWidget::showEvent(event);
}

void CVPreferencesPane::addRow(const QString &label, QWidget *control)
{
    if (control->accessibleName().isEmpty())
        control->setAccessibleName(QString(label).remove(u'&').remove(u':'));
    if (label.isEmpty()) {
        m_form->addRow(control);
        return;
    }
    auto *l = new QLabel(label, this);
    l->setBuddy(control);
    m_form->addRow(l, control);
}
