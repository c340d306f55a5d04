#pragma once

#include <QDialog>

class ProviderConnection;
class InferenceFields;

// "Model Settings": the temperature and the output limit of the active model. "Save" takes
// what parses (the temperature clamped to 0.0 to 1.0) and stores it; the rest stays as it was.
class ModelSettingsWindow : public QDialog {
    Q_OBJECT

public:
    explicit ModelSettingsWindow(ProviderConnection *connection, QWidget *parent = nullptr);
    InferenceFields *fields() const { return m_fields; }
    void save();

private:
    ProviderConnection *m_connection;
    InferenceFields *m_fields;
};
