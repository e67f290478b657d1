#include "app/tonemill_app.h"

int main(int argc, char** argv) {
  TonemillApp app("");
  return app.Run(argc, argv);
}
