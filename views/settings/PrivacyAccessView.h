#pragma once

#include <QWidget>

class PrivacyAccessController;

// The "Privacy" page of Settings: one switch per kind of personal data the built-in tools
// may reach.
class PrivacyAccessView : public QWidget {
    Q_OBJECT

public:
    explicit PrivacyAccessView(PrivacyAccessController *controller, QWidget *parent = nullptr);
};
