#include "views/chat/ModelSettingsWindow.h"

#include "chat/session/ProviderConnection.h"
#include "views/chat/InferenceFields.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

ModelSettingsWindow::ModelSettingsWindow(ProviderConnection *connection, QWidget *parent)
    : QDialog(parent), m_connection(connection)
{
    setObjectName(QStringLiteral("modelSettings"));
    setWindowTitle(QStringLiteral("Model Settings"));
    m_fields = new InferenceFields(connection->temperature(), connection->maxOutputTokens(), this);
    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    buttons->addButton(QStringLiteral("Save"), QDialogButtonBox::AcceptRole)->setDefault(true);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(QStringLiteral("<b>Model Settings</b>"), this));
    layout->addWidget(new QLabel(QStringLiteral("Inference parameters for the active model"), this));
    layout->addWidget(m_fields);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &ModelSettingsWindow::save);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

void ModelSettingsWindow::save()
{
    m_connection->applyModelSettings(m_fields->temperatureField()->text(), m_fields->maxTokensField()->text());
    accept();
}
