// SPDX-License-Identifier: MIT
#pragma once

#include <Eigen/Core>

namespace corvane {

// What Eigen's search for the least squares asks of a functor, besides its residuals.
struct LeastSquares {
  using Scalar = double;
  using InputType = Eigen::VectorXd;
  using ValueType = Eigen::VectorXd;
  using JacobianType = Eigen::MatrixXd;
  enum { InputsAtCompileTime = Eigen::Dynamic, ValuesAtCompileTime = Eigen::Dynamic };
};

}  // namespace corvane
