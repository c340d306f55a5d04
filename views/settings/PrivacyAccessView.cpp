#include "views/settings/PrivacyAccessView.h"

#include "app/PrivacyAccessController.h"

#include <QCheckBox>
#include <QLabel>
#include <QVBoxLayout>

PrivacyAccessView::PrivacyAccessView(PrivacyAccessController *controller, QWidget *parent) : QWidget(parent)
{
    auto *layout = new QVBoxLayout(this);
    auto *lead = new QLabel(QStringLiteral("Which of your data the built-in tools may read and change when an MCP "
                                           "client or the chat's model calls them."),
                            this);
    lead->setWordWrap(true);
    layout->addWidget(lead);
    for (auto kind : {PrivacyAccess::Kind::Calendars, PrivacyAccess::Kind::Reminders, PrivacyAccess::Kind::Contacts}) {
        auto *box = new QCheckBox(PrivacyAccessController::label(kind), this);
        box->setObjectName(QStringLiteral("privacy.") + PrivacyAccess::word(kind));
        box->setChecked(controller->isGranted(kind));
        connect(box, &QCheckBox::toggled, controller, [controller, kind](bool on) { controller->setGranted(kind, on); });
        connect(controller, &PrivacyAccessController::accessChanged, box,
                [box, kind](PrivacyAccess::Kind changed, bool granted) {
                    if (changed == kind && box->isChecked() != granted)
                        box->setChecked(granted);
                });
        layout->addWidget(box);
    }
    auto *note = new QLabel(QStringLiteral("From a terminal: kelvara access grant|revoke calendars|reminders|contacts"), this);
    note->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(note);
    layout->addStretch(1);
}
