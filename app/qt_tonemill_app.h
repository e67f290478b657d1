#pragma once

#include <QApplication>

class QWidget;

// The application object. Files opened through the desktop (QEvent::FileOpen) go to the
// main window once it exists and are dropped before that.
class QtTonemillApp : public QApplication {
  Q_OBJECT

 public:
  QtTonemillApp(int& argc, char** argv);

  bool event(QEvent* event) override;

  QWidget* main_window = nullptr;
};
