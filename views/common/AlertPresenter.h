#pragma once

class AbstractController;
class QWidget;

// Shows a controller's alert state (shouldShowAlert, alertTitle, alertMessage) as a
// message box over the window of the bound view, and clears the flag when the user
// dismisses it. Several views may bind the same controller: one box shows per alert.
namespace AlertPresenter {

void bind(AbstractController *controller, QWidget *view);

}  // namespace AlertPresenter
