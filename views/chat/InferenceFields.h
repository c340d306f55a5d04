#pragma once

#include <QWidget>

class QLabel;
class QLineEdit;

// The temperature and the output limit as text, each with its row of quick choices
// (0.0 to 1.0; Auto, 512 to 8k) and its note. Shared by the connection sheet and the model
// settings window.
class InferenceFields : public QWidget {
    Q_OBJECT

public:
    InferenceFields(double temperature, qint64 maxOutputTokens, QWidget *parent = nullptr);

    QLineEdit *temperatureField() const { return m_temperature; }
    QLineEdit *maxTokensField() const { return m_maxTokens; }

private:
    QLineEdit *m_temperature;
    QLineEdit *m_maxTokens;
};
