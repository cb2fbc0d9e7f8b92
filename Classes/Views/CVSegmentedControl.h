#pragma once

#include <QList>
#include <QStringList>
#include <QWidget>

class QAbstractButton;
class QButtonGroup;

// A row of joined buttons, one per segment: either one segment selected at a time (which may
// also be none, for a stored value that matches no segment) or any number of them. Every
// segment takes the keyboard focus and carries its label as its accessible name.
class CVSegmentedControl : public QWidget {
    Q_OBJECT

public:
    enum class Mode { SelectOne, SelectAny };

    CVSegmentedControl(const QStringList &labels, Mode mode, QWidget *parent = nullptr);

    int segmentCount() const { return int(m_buttons.size()); }
    QAbstractButton *button(int segment) const { return m_buttons.value(segment); }
    // A number carried by each segment (by default its index).
    void setTag(int segment, qint64 tag);
    qint64 tag(int segment) const { return m_tags.value(segment); }
    int segmentForTag(qint64 tag) const;

    // The selected segment of a SelectOne control, or -1.
    int selectedSegment() const;
    // -1 selects none.
    void setSelectedSegment(int segment);
    bool isSelected(int segment) const;
    void setSelected(int segment, bool selected);

Q_SIGNALS:
    // The user pressed a segment (never sent by the setters).
    void segmentClicked(int segment);

private:
    Mode m_mode;
    QButtonGroup *m_group;
    QList<QAbstractButton *> m_buttons;
    QList<qint64> m_tags;
};
