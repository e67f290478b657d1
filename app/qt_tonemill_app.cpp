#include "app/qt_tonemill_app.h"

#include <QEvent>
#include <QWidget>

QtTonemillApp::QtTonemillApp(int& argc, char** argv) : QApplication(argc, argv) {}

bool QtTonemillApp::event(QEvent* event) {
  if (event->type() == QEvent::FileOpen) {
    if (main_window) QCoreApplication::sendEvent(main_window, event);
    return true;
  }
  return QApplication::event(event);
}
