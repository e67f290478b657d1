#include "analysis/observation_model.h"

#include <cmath>

ObservationModel::ObservationModel(const MeasureStateSpace& space) {
  const double region = 1.0 / observation_lambda;
  pointers.resize(space.num_states);
  for (int s = 0; s < space.num_states; ++s) {
    const double x = space.state_positions[s];
    if (x < region)
      pointers[s] = 2;
    else if (x - std::trunc(x) < region)
      pointers[s] = 1;
    else
      pointers[s] = 0;
  }
}
