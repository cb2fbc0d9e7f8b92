#include "Views/CVSegmentedControl.h"

#include "Views/CVSegmentButton.h"

#include <QButtonGroup>
#include <QHBoxLayout>

CVSegmentedControl::CVSegmentedControl(const QStringList &labels, Mode mode, QWidget *parent)
    : QWidget(parent)
    , m_mode(mode)
    , m_group(new QButtonGroup(this))
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_group->setExclusive(mode == Mode::SelectOne);
    for (int i = 0; i < labels.size(); ++i) {
        auto *b = new CVSegmentButton(labels[i], this);
        m_group->addButton(b, i);
        layout->addWidget(b);
        m_buttons.append(b);
        m_tags.append(i);
    }
    layout->addStretch(1);
    connect(m_group, &QButtonGroup::idClicked, this, &CVSegmentedControl::segmentClicked);
}

void CVSegmentedControl::setTag(int segment, qint64 tag)
{
    if (segment >= 0 && segment < m_tags.size())
        m_tags[segment] = tag;
}

int CVSegmentedControl::segmentForTag(qint64 tag) const
{
    return int(m_tags.indexOf(tag));
}

int CVSegmentedControl::selectedSegment() const
{
    for (int i = 0; i < m_buttons.size(); ++i)
        if (m_buttons[i]->isChecked())
            return i;
    return -1;
}

void CVSegmentedControl::setSelectedSegment(int segment)
{
    // An exclusive group cannot show none selected: lift the rule while setting.
    m_group->setExclusive(false);
    for (int i = 0; i < m_buttons.size(); ++i)
        m_buttons[i]->setChecked(i == segment);
    m_group->setExclusive(m_mode == Mode::SelectOne);
}

bool CVSegmentedControl::isSelected(int segment) const
{
    QAbstractButton *b = button(segment);
    return b && b->isChecked();
}

void CVSegmentedControl::setSelected(int segment, bool selected)
{
    if (m_mode == Mode::SelectOne) {
        if (selected)
            setSelectedSegment(segment);
        else if (isSelected(segment))
            setSelectedSegment(-1);
        return;
    }
    if (QAbstractButton *b = button(segment))
        b->setChecked(selected);
}
