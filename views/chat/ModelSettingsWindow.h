#pragma once

#include <QDialog>

class ChatViewModel;
class InferenceFields;

// "Model Settings": the temperature and the output limit of the active model. "Save" takes
// what parses (the temperature clamped to 0.0 to 1.0) and stores it; the rest stays as it was.
class ModelSettingsWindow : public QDialog {
    Q_OBJECT

public:
    explicit ModelSettingsWindow(ChatViewModel *model, QWidget *parent = nullptr);
    InferenceFields *fields() const { return m_fields; }
    void save();

private:
    ChatViewModel *m_model;
    InferenceFields *m_fields;
};
