#include "score/float_helpers.h"

#include <cmath>

bool float_equals(float a, float b, float tolerance) { return !(std::fabs(a - b) > tolerance); }

bool float_equals(double a, double b, double tolerance) { return !(std::fabs(a - b) > tolerance); }

float floor_mod(float a, float b) { return a - std::floor(a / b) * b; }

void parabola_interpolation(double x1, double y1, double x2, double y2, double x3, double y3, double* x_vertex,
                            double* y_vertex) {
  const double denominator = (x1 - x3) * (x1 - x2) * (x2 - x3);
  if (denominator == 0.0) {
    *x_vertex = x2;
    *y_vertex = y2;
    return;
  }
  const double a = (x3 * (y2 - y1) + x2 * (y1 - y3) + x1 * (y3 - y2)) / denominator;
  if (a == 0.0) {
    *x_vertex = x2;
    *y_vertex = y2;
    return;
  }
  const double b = (x3 * x3 * (y1 - y2) + x2 * x2 * (y3 - y1) + x1 * x1 * (y2 - y3)) / denominator;
  const double c =
      (x2 * x3 * (x2 - x3) * y1 + x3 * x1 * (x3 - x1) * y2 + x1 * x2 * (x1 - x2) * y3) / denominator;
  *x_vertex = -b / (2.0 * a);
  *y_vertex = c - b * b / (4.0 * a);
}

void parabola_interpolation_even(double x1, double y1, double x2, double y2, double x3, double y3,
                                 double* x_vertex, double* y_vertex) {
  const double d = 2.0 * y2 - y1 - y3;
  const double p = (y3 - y1) / (2.0 * d);
  *x_vertex = x2 + (x3 - x1) * 0.5 * p;
  *y_vertex = y2 + (y3 - y1) * 0.25 * p;
}
