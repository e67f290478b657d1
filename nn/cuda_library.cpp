#include "nn/cuda_library.h"

#include <QCoreApplication>
#include <QDir>
#include <QLibrary>
#include <iostream>

std::string CudaLibPath() {
  const QString app_dir =
      QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QDir::currentPath();
  return QDir(app_dir + "/lib").absoluteFilePath("cudutil").toStdString();
}

bool CudaIsAvailable() {
  QLibrary library(QString::fromStdString(CudaLibPath()));
  if (!library.resolve("RunNet")) {
    std::cout << library.errorString().toStdString() << std::endl;
    return false;
  }
  const auto is_available = reinterpret_cast<IsAvailableFunction>(library.resolve("IsAvailable"));
  if (!is_available) {
    std::cout << library.errorString().toStdString() << std::endl;
    return false;
  }
  return is_available();
}
