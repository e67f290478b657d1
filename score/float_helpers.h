#pragma once

// Small numeric helpers that grids, notes and the display share.

// True when a and b are no further apart than `tolerance`. A NaN on either side compares
// equal, since the test is "not further apart".
bool float_equals(float a, float b, float tolerance);
bool float_equals(double a, double b, double tolerance);

// a modulo b with the sign of b: a - floor(a / b) * b.
float floor_mod(float a, float b);

// The vertex of the parabola through three points. Where the points are collinear or two
// abscissas coincide, the middle point is returned as it is.
void parabola_interpolation(double x1, double y1, double x2, double y2, double x3, double y3, double* x_vertex,
                            double* y_vertex);

// The same for evenly spaced abscissas x1 < x2 < x3, without the degenerate-case test: the
// caller passes a strict local extremum at x2.
void parabola_interpolation_even(double x1, double y1, double x2, double y2, double x3, double y3,
                                 double* x_vertex, double* y_vertex);
