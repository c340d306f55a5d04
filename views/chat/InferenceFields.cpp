#include "views/chat/InferenceFields.h"

#include "chat/session/ProviderConnection.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QToolButton>

InferenceFields::InferenceFields(double temperature, qint64 maxOutputTokens, QWidget *parent) : QWidget(parent)
{
    m_temperature = new QLineEdit(QString::number(temperature), this);
    m_temperature->setObjectName(QStringLiteral("temperature"));
    auto *temperatureChoices = new QHBoxLayout;
    for (double value : {0.0, 0.3, 0.5, 0.7, 1.0}) {
        auto *choice = new QToolButton(this);
        choice->setText(QString::asprintf("%.1f", value));
        temperatureChoices->addWidget(choice);
        connect(choice, &QToolButton::clicked, this, [this, value] { m_temperature->setText(QString::asprintf("%.1f", value)); });
    }
    temperatureChoices->addStretch();
    m_maxTokens = new QLineEdit(QString::number(maxOutputTokens), this);
    m_maxTokens->setObjectName(QStringLiteral("maxTokens"));
    auto *limitChoices = new QHBoxLayout;
    for (qint64 value : {-1, 512, 1024, 2048, 4096, 8192}) {
        auto *choice = new QToolButton(this);
        choice->setText(value == -1 ? QStringLiteral("Auto") : value >= 1024 ? QStringLiteral("%1k").arg(value / 1024) : QString::number(value));
        limitChoices->addWidget(choice);
        connect(choice, &QToolButton::clicked, this, [this, value] { m_maxTokens->setText(QString::number(value)); });
    }
    limitChoices->addStretch();
    auto *limitHint = new QLabel(
        QStringLiteral("Maximum number of tokens the model may generate. Use -1 to let the model decide (provider default)."), this);
    limitHint->setWordWrap(true);

    auto *form = new QFormLayout(this);
    form->setContentsMargins(0, 0, 0, 0);
    form->addRow(QStringLiteral("Temperature:"), m_temperature);
    form->addRow(QStringLiteral("Range: 0.0 – 1.0"), temperatureChoices);
    form->addRow(QStringLiteral("Output limit:"), m_maxTokens);
    form->addRow(QString(), limitChoices);
    form->addRow(QString(), limitHint);
    form->addRow(QString(), new QLabel(QStringLiteral("Current: ") + ProviderConnection::outputLimitText(maxOutputTokens), this));
}
