#include "Preferences/CVAboutWindow.h"

#include "Views/CVIcons.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

CVAboutWindow::CVAboutWindow(QWidget *parent)
    : QDialog(parent)
{
    setObjectName(u"CVAboutWindow"_s);
    setWindowTitle(u"About Corvana"_s);
    setAccessibleName(u"About Corvana"_s);

    auto *icon = new QLabel(this);
    icon->setPixmap(CVIcons::icon(CVIcons::Kind::Application).pixmap(96, 96));
    icon->setAlignment(Qt::AlignHCenter);
    icon->setAccessibleName(u"Corvana icon"_s);
    auto *name = new QLabel(u"<h2>Corvana</h2>"_s, this);
    name->setAlignment(Qt::AlignHCenter);
    versionLabel = new QLabel(u"Version %1 · Qt %2 (built with Qt %3)"_s.arg(QCoreApplication::applicationVersion(),
                                  QString::fromLatin1(qVersion()), QStringLiteral(QT_VERSION_STR)),
        this);
    versionLabel->setObjectName(u"version"_s);
    versionLabel->setAlignment(Qt::AlignHCenter);
    versionLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *what = new QLabel(u"Spans the media files of a music library over other drives and folders, and brings "
                            "them back, keeping the player pointed at every file."_s,
        this);
    what->setWordWrap(true);
    what->setAlignment(Qt::AlignHCenter);
    licenceLabel = new QLabel(u"Corvana is free software: you can redistribute it and/or modify it under the terms "
                              "of the <a href=\"https://www.gnu.org/licenses/gpl-3.0.html\">GNU General Public "
                              "License, version 3</a> (GPL-3.0). It comes with ABSOLUTELY NO WARRANTY."_s,
        this);
    licenceLabel->setObjectName(u"licence"_s);
    licenceLabel->setWordWrap(true);
    licenceLabel->setAlignment(Qt::AlignHCenter);
    licenceLabel->setOpenExternalLinks(true);
    licenceLabel->setTextInteractionFlags(Qt::TextBrowserInteraction);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close | QDialogButtonBox::Help, this);
    buttons->button(QDialogButtonBox::Close)->setDefault(true);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    connect(buttons, &QDialogButtonBox::helpRequested, this, &CVAboutWindow::helpRequested);

    auto *layout = new QVBoxLayout(this);
    for (QWidget *w : std::initializer_list<QWidget *> { icon, name, versionLabel, what, licenceLabel })
        layout->addWidget(w);
    layout->addStretch(1);
    layout->addWidget(buttons);
    setFixedWidth(420);
}
