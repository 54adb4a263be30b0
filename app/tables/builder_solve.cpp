// SPDX-License-Identifier: MIT
#include "app/tables/builder_solve.h"

#include <Eigen/Dense>
#include <Eigen/IterativeLinearSolvers>
#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>

#include "app/inks/ink_response.h"

namespace corvane {
namespace {

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::Matrix4d;
using Eigen::Vector3d;
using Eigen::Vector4d;
using Eigen::VectorXd;
using Slopes = Eigen::Matrix<double, 3, 4>;             // of Lab by the dyes
using InkSlopes = Eigen::Matrix<double, kInkCount, 4>;  // of ink amounts by the dyes
using LabSlopes = Eigen::Matrix<double, 3, kInkCount>;  // of Lab by the ink amounts
using Labs = Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>;
using Dyes = Eigen::Matrix<double, Eigen::Dynamic, 4, Eigen::RowMajor>;
using Sparse = Eigen::SparseMatrix<double, Eigen::RowMajor>;

constexpr int kSteps = 24;              // Gauss-Newton steps
constexpr double kLongestStep = 0.2;    // of a dye amount
constexpr double kFirstDamping = 1000;  // of squared dye amounts
constexpr double kHold = 1e6;           // keeps a node that is at the ink limit there
// Second differences of Lab from this on count with their fourth power.
constexpr double kSharp = 6;
// Lightness counts more than in CIE94: it must not fall where it ought to rise.
constexpr double kOfLightness = 1.2;
constexpr double kMargin = 0.004;  // that contone values may add by rounding

constexpr int kBends = 3 * kGrid * kGrid * (kGrid - 2);

// The second differences along the three axes, a row each.
Sparse SecondDifferences() {
  std::vector<Eigen::Triplet<double>> entries;
  int row = 0;
  for (int node = 0; node < kNodes; ++node) {
    const int place[3] = {node / kAxisSteps[0], node / kAxisSteps[1] % kGrid, node % kGrid};
    for (int axis = 0; axis < 3; ++axis) {
      if (place[axis] == 0 || place[axis] == kGrid - 1) continue;
      entries.emplace_back(row, node - kAxisSteps[axis], 1);
      entries.emplace_back(row, node, -2);
      entries.emplace_back(row, node + kAxisSteps[axis], 1);
      ++row;
    }
  }
  Sparse differences(kBends, kNodes);
  differences.setFromTriplets(entries.begin(), entries.end());
  return differences;
}

struct BendForms {
  Sparse differences = SecondDifferences();
  Sparse transposed = differences.transpose();
  Sparse form = transposed * differences;  // the sum of their squares
};

const BendForms& Bends() {
  static const BendForms forms;
  return forms;
}

DyeAmounts ToDyes(const Vector4d& dyes) { return {dyes[0], dyes[1], dyes[2], dyes[3]}; }
Vector3d ToVector(const Triple& lab) { return {lab[0], lab[1], lab[2]}; }

// The squared length of a small Lab difference at `lab`, as CIE94 sees it.
Matrix3d Metric(const Triple& lab, double weight) {
  const double chroma = std::hypot(lab[1], lab[2]);
  Vector3d along(0, 1, 0), across(0, 0, 1);
  if (chroma > 1e-6) {
    along = {0, lab[1] / chroma, lab[2] / chroma};
    across = {0, -lab[2] / chroma, lab[1] / chroma};
  }
  const double ofChroma = 1.0 + 0.02 * chroma, ofHue = 1.0 + 0.015 * chroma;
  Matrix3d metric = along * along.transpose() / (ofChroma * ofChroma) +
                    across * across.transpose() / (ofHue * ofHue);
  metric(0, 0) = kOfLightness;
  return metric * (weight * weight);
}

// Colours of dye amounts and of the inks that carry them.
class Response {
 public:
  Response(const PrintModel& model, const Separator& separator)
      : inks_(model), separator_(separator) {}

  InkAmounts Inks(const Vector4d& dyes) const { return separator_.AmountsOf(ToDyes(dyes)); }

  InkAmounts Inks(const Vector4d& dyes, InkSlopes& slopes) const {
    constexpr double kStep = 1e-4;
    const InkAmounts amounts = Inks(dyes);
    for (int dye = 0; dye < kDyeCount; ++dye) {
      Vector4d other = dyes;
      const double step = dyes[dye] > 0.5 ? -kStep : kStep;
      other[dye] += step;
      const InkAmounts moved = Inks(other);
      for (int ink = 0; ink < kInkCount; ++ink) {
        slopes(ink, dye) = (moved[ink] - amounts[ink]) / step;
      }
    }
    return amounts;
  }

  Vector3d Lab(const InkAmounts& amounts) const { return ToVector(inks_.Lab(amounts)); }

  Vector3d Lab(const InkAmounts& amounts, LabSlopes& slopes) const {
    const InkResponse response = inks_.Respond(amounts);
    for (int ink = 0; ink < kInkCount; ++ink) slopes.col(ink) = ToVector(response.slopes[ink]);
    return ToVector(response.lab);
  }

 private:
  InkResponseTable inks_;
  const Separator& separator_;
};

InkAmounts Mean(const InkAmounts& a, const InkAmounts& b) {
  InkAmounts mean;
  for (int ink = 0; ink < kInkCount; ++ink) mean[ink] = (a[ink] + b[ink]) / 2;
  return mean;
}

// A colour between two nodes: how it changes with the dyes of each.
struct Between {
  std::array<int, 2> nodes{};
  std::array<Slopes, 2> slopes = {Slopes::Zero(), Slopes::Zero()};
  Matrix3d metric = Matrix3d::Zero();
};

}  // namespace

// The normal equations of a step, applied without being written out.
class StepMatrix;

}  // namespace corvane

namespace Eigen::internal {
template <>
struct traits<corvane::StepMatrix> : traits<SparseMatrix<double>> {};
}  // namespace Eigen::internal

namespace corvane {

class StepMatrix : public Eigen::EigenBase<StepMatrix> {
 public:
  using Scalar = double;
  using RealScalar = double;
  using StorageIndex = int;
  enum {
    ColsAtCompileTime = Eigen::Dynamic,
    MaxColsAtCompileTime = Eigen::Dynamic,
    IsRowMajor = false
  };

  Index rows() const { return kDyeCount * kNodes; }
  Index cols() const { return kDyeCount * kNodes; }
  template <typename Right>
  Eigen::Product<StepMatrix, Right, Eigen::AliasFreeProduct> operator*(
      const Eigen::MatrixBase<Right>& right) const {
    return {*this, right.derived()};
  }

  Eigen::Map<const VectorXd> Apply(const VectorXd& vector) const {
    const Eigen::Map<const Dyes> in(vector.data(), kNodes, 4);
    Labs& seen = seen_;
    for (int node = 0; node < kNodes; ++node) {
      seen.row(node) = (slopes[node] * in.row(node).transpose()).transpose();
    }
    differences_.noalias() = Bends().differences * seen;
    differences_.array().colwise() *= bendWeights.array();
    bent_.noalias() = Bends().transposed * differences_;
    out_.noalias() = Bends().form * in;
    for (int node = 0; node < kNodes; ++node) {
      out_.row(node) =
          (inkBend * out_.row(node).transpose() + own[node] * in.row(node).transpose() +
           slopes[node].transpose() * bent_.row(node).transpose())
              .transpose();
    }
    for (const Between& pair : between) {
      const Vector3d moved = pair.slopes[0] * in.row(pair.nodes[0]).transpose() +
                             pair.slopes[1] * in.row(pair.nodes[1]).transpose();
      const Vector3d pull = pair.metric * moved;
      for (int i = 0; i < 2; ++i) {
        out_.row(pair.nodes[i]) += (pair.slopes[i].transpose() * pull).transpose();
      }
    }
    for (int node = 0; node < kNodes; ++node) {
      for (int dye = 0; dye < kDyeCount; ++dye) {
        if (!moves[node][dye]) out_(node, dye) = in(node, dye);
      }
    }
    return Eigen::Map<const VectorXd>(out_.data(), out_.size());
  }

  std::vector<Slopes> slopes;
  std::vector<Matrix4d> own;  // the terms of each node alone
  std::vector<std::array<bool, kDyeCount>> moves;
  std::vector<Between> between;
  VectorXd bendWeights = VectorXd::Ones(kBends);  // of each second difference of colour
  double inkBend = 0;

 private:
  // Of the last product.
  mutable Labs seen_{kNodes, 3}, differences_{kBends, 3}, bent_{kNodes, 3};
  mutable Dyes out_{kNodes, 4};
};

namespace {

// Each node's own 4 x 4 block, inverted.
class NodePreconditioner {
 public:
  NodePreconditioner() = default;
  NodePreconditioner& analyzePattern(const StepMatrix&) { return *this; }
  NodePreconditioner& factorize(const StepMatrix& matrix) { return compute(matrix); }
  NodePreconditioner& compute(const StepMatrix& matrix) {
    blocks_.resize(kNodes);
    const VectorXd diagonal = Bends().form.diagonal();
    const VectorXd colourDiagonal =
        Bends().transposed.cwiseProduct(Bends().transposed) * matrix.bendWeights;
    std::vector<Matrix4d> shared(kNodes, Matrix4d::Zero());
    for (const Between& pair : matrix.between) {
      for (int i = 0; i < 2; ++i) {
        shared[pair.nodes[i]] += pair.slopes[i].transpose() * pair.metric * pair.slopes[i];
      }
    }
    for (int node = 0; node < kNodes; ++node) {
      Matrix4d block = matrix.own[node] + shared[node] +
                       colourDiagonal[node] * matrix.slopes[node].transpose() * matrix.slopes[node];
      block.diagonal().array() += matrix.inkBend * diagonal[node];
      for (int dye = 0; dye < kDyeCount; ++dye) {
        if (matrix.moves[node][dye]) continue;
        block.row(dye).setZero();
        block.col(dye).setZero();
        block(dye, dye) = 1;
      }
      blocks_[node] = block.inverse();
    }
    return *this;
  }
  template <typename Right>
  VectorXd solve(const Eigen::MatrixBase<Right>& right) const {
    VectorXd out(right.size());
    for (int node = 0; node < kNodes; ++node) {
      out.segment<4>(4 * node) = blocks_[node] * right.template segment<4>(4 * node);
    }
    return out;
  }
  Eigen::ComputationInfo info() const { return Eigen::Success; }

 private:
  std::vector<Matrix4d> blocks_;
};

}  // namespace
}  // namespace corvane

namespace Eigen::internal {
template <typename Right>
struct generic_product_impl<corvane::StepMatrix, Right, SparseShape, DenseShape, GemvProduct>
    : generic_product_impl_base<corvane::StepMatrix, Right,
                                generic_product_impl<corvane::StepMatrix, Right>> {
  using Scalar = double;
  template <typename Out>
  static void scaleAndAddTo(Out& out, const corvane::StepMatrix& matrix, const Right& right,
                            const Scalar& factor) {
    out += factor * matrix.Apply(right);
  }
};
}  // namespace Eigen::internal

namespace corvane {
namespace {

class Solver {
 public:
  Solver(const std::vector<NodeWish>& wishes, const std::vector<BetweenWish>& between,
         const PrintModel& model, const Separator& separator, const SolveWeights& weights)
      : wishes_(wishes),
        between_(between),
        response_(model, separator),
        weights_(weights),
        separator_(separator),
        limit_(separator.Rules().inkLimit - kMargin),
        blackInk_(separator.Rules().blackInk),
        dyes_(kNodes, 4) {
    for (int dye = 0; dye < kDyeCount; ++dye) most_[dye] = separator.MostOf(static_cast<Dye>(dye));
    for (const NodeWish& wish : wishes) metrics_.push_back(Metric(wish.lab, wish.weight));
    for (const BetweenWish& wish : between) {
      Between& pair = matrix_.between.emplace_back();
      pair.nodes = wish.nodes;
      pair.metric = Metric(wish.lab, wish.weight);
    }
    matrix_.slopes.resize(kNodes);
    matrix_.own.resize(kNodes);
    matrix_.moves.resize(kNodes);
    matrix_.inkBend = weights.inkBend * weights.inkBend;
  }

  std::vector<DyeAmounts> Solve() {
    Start();
    cost_ = Cost(dyes_);
    for (int step = 0; step < kSteps; ++step) {
      if (Improve()) break;
    }
    std::vector<DyeAmounts> result;
    for (int node = 0; node < kNodes; ++node) {
      result.push_back(ToDyes(dyes_.row(node).transpose()));
    }
    return result;
  }

 private:
  // A Gauss-Newton step, or the part of it that makes things better. True when a whole one hardly
  // does.
  bool Improve() {
    const VectorXd right = Linearise();
    Eigen::ConjugateGradient<StepMatrix, Eigen::Lower | Eigen::Upper, NodePreconditioner> solver;
    solver.setMaxIterations(24);
    solver.setTolerance(4e-3);
    solver.compute(matrix_);
    const VectorXd change = solver.solve(right);
    for (const double part : {1.0, 0.4, 0.16}) {
      const Dyes next = Moved(part * change);
      const double nextCost = Cost(next);
      if (nextCost >= cost_) continue;
      const bool whole = part == 1.0, stalls = nextCost > 0.999 * cost_;
      dyes_ = next;
      cost_ = nextCost;
      damping_ = whole ? std::max(damping_ / 2.0, 1e-3) : 2.0 * damping_;
      return whole && stalls;
    }
    damping_ *= 10.0;
    return false;
  }

  // Each node alone, from where its neighbour nearer to white came out.
  void Start() {
    for (int node = 0; node < kNodes; ++node) {
      Vector4d dyes = Vector4d::Zero();
      if (node > 0) {
        const int axis = node % kGrid > 0 ? 2 : node / kGrid % kGrid > 0 ? 1 : 0;
        dyes = dyes_.row(node - kAxisSteps[axis]).transpose();
      }
      const NodeWish& wish = wishes_[node];
      if (wish.fixed) {
        for (int dye = 0; dye < kDyeCount; ++dye) dyes_(node, dye) = wish.dyes[dye];
        continue;
      }
      dyes[3] = wish.black;
      dyes_.row(node) = SolveAlone(node, Confined(dyes)).transpose();
    }
  }

  Vector4d SolveAlone(int node, Vector4d dyes) const {
    double damping = 1.0, cost = OwnCost(node, dyes);
    for (int step = 0; step < 25; ++step) {
      InkSlopes inkSlopes;
      LabSlopes labSlopes;
      const Vector3d lab = response_.Lab(response_.Inks(dyes, inkSlopes), labSlopes);
      const Slopes slopes = labSlopes * inkSlopes;
      Matrix4d system;
      Vector4d right;
      OwnTerms(node, dyes, lab, slopes, system, right);
      HoldAtLimit(dyes, system, right);
      std::array<bool, kDyeCount> moves = MovesOf(node, dyes, right);
      system.diagonal().array() += damping;
      const Vector4d next = Confined(dyes + Restricted(system, right, moves));
      const double nextCost = OwnCost(node, next);
      if (nextCost < cost) {
        const bool stalls = nextCost > 0.9999 * cost;
        dyes = next;
        cost = nextCost;
        damping = std::max(damping / 6.0, 1e-3);
        if (stalls || cost < 1e-3) break;
      } else {
        damping *= 10.0;
        if (damping > 1e9) break;
      }
    }
    return dyes;
  }

  static Vector4d Restricted(Matrix4d system, Vector4d right,
                             const std::array<bool, kDyeCount>& moves) {
    for (int dye = 0; dye < kDyeCount; ++dye) {
      if (moves[dye]) continue;
      system.row(dye).setZero();
      system.col(dye).setZero();
      system(dye, dye) = 1;
      right[dye] = 0;
    }
    return system.llt().solve(right);
  }

  double OwnCost(int node, const Vector4d& dyes) const {
    return OwnCost(node, dyes, response_.Lab(response_.Inks(dyes)));
  }
  double OwnCost(int node, const Vector4d& dyes, const Vector3d& lab) const {
    const NodeWish& wish = wishes_[node];
    const Vector3d off = lab - ToVector(wish.lab);
    const double black = weights_.black * (dyes[3] - wish.black);
    return off.dot(metrics_[node] * off) + black * black + 2.0 * wish.blackCost * dyes[3];
  }

  // The quadratic terms of a node's own wishes, and their downhill direction.
  void OwnTerms(int node, const Vector4d& dyes, const Vector3d& lab, const Slopes& slopes,
                Matrix4d& system, Vector4d& right) const {
    const NodeWish& wish = wishes_[node];
    system = slopes.transpose() * metrics_[node] * slopes;
    right = slopes.transpose() * (metrics_[node] * (ToVector(wish.lab) - lab));
    const double black = weights_.black * weights_.black;
    system(3, 3) += black;
    right[3] += black * (wish.black - dyes[3]) - wish.blackCost;
  }

  // At the ink limit what one dye takes another gives.
  void HoldAtLimit(const Vector4d& dyes, Matrix4d& system, Vector4d& right) const {
    DyeAmounts inkSlopes;
    if (separator_.LeastInk(ToDyes(dyes), &inkSlopes) < limit_ - 1e-4) return;
    const Vector4d slope(inkSlopes[0], inkSlopes[1], inkSlopes[2], inkSlopes[3]);
    const double outward = right.dot(slope) / slope.squaredNorm();
    if (outward <= 0) return;
    right -= outward * slope;
    system += kHold * slope * slope.transpose();
  }

  // The dyes that are not held at a bound that they would cross.
  std::array<bool, kDyeCount> MovesOf(int node, const Vector4d& dyes, const Vector4d& right) const {
    std::array<bool, kDyeCount> moves;
    for (int dye = 0; dye < kDyeCount; ++dye) {
      moves[dye] =
          !wishes_[node].fixed && (right[dye] > 0 ? dyes[dye] < most_[dye] : dyes[dye] > 0.0);
    }
    if (!blackInk_) moves[3] = false;
    return moves;
  }

  Vector4d Confined(Vector4d dyes) const {
    if (!blackInk_) dyes[3] = 0;
    dyes = dyes.cwiseMax(0.0).cwiseMin(most_);
    // Dyes beyond their solids cost most and give way first.
    if (separator_.LeastInk(ToDyes(dyes)) <= limit_) return dyes;
    const Vector4d solids = dyes.cwiseMin(1.0);
    if (solids.sum() <= limit_) {
      const double beyond = separator_.LeastInk(ToDyes(dyes)) - solids.sum();
      return solids + (dyes - solids) * ((limit_ - solids.sum()) / beyond);
    }
    dyes = solids * (limit_ / solids.sum());
    return dyes;
  }

  double Cost(const Dyes& dyes) const {
    Labs labs(kNodes, 3);
    double cost = 0;
    std::vector<InkAmounts> inks(kNodes);
    for (int node = 0; node < kNodes; ++node) {
      const Vector4d own = dyes.row(node).transpose();
      inks[node] = response_.Inks(own);
      const Vector3d lab = response_.Lab(inks[node]);
      labs.row(node) = lab.transpose();
      cost += OwnCost(node, own, lab);
    }
    for (std::size_t i = 0; i < between_.size(); ++i) {
      const auto [a, b] = between_[i].nodes;
      const Vector3d off = response_.Lab(Mean(inks[a], inks[b])) - ToVector(between_[i].lab);
      cost += off.dot(matrix_.between[i].metric * off);
    }
    const VectorXd bends = (Bends().differences * labs).rowwise().squaredNorm();
    const double square = weights_.colourBend * weights_.colourBend;
    cost += square * (bends.array() + bends.array().square() / (2 * kSharp * kSharp)).sum();
    return cost + matrix_.inkBend * dyes.cwiseProduct(Bends().form * dyes).sum();
  }

  VectorXd Linearise() {
    Labs labs(kNodes, 3);
    Dyes right(kNodes, 4);
    std::vector<InkAmounts> inks(kNodes);
    std::vector<InkSlopes> inkSlopes(kNodes);
    for (int node = 0; node < kNodes; ++node) {
      const Vector4d dyes = dyes_.row(node).transpose();
      inks[node] = response_.Inks(dyes, inkSlopes[node]);
      LabSlopes labSlopes;
      const Vector3d lab = response_.Lab(inks[node], labSlopes);
      matrix_.slopes[node] = labSlopes * inkSlopes[node];
      Vector4d own;
      OwnTerms(node, dyes, lab, matrix_.slopes[node], matrix_.own[node], own);
      matrix_.own[node].diagonal().array() += damping_;
      labs.row(node) = lab.transpose();
      right.row(node) = own.transpose();
    }
    Labs differences = Bends().differences * labs;
    const double square = weights_.colourBend * weights_.colourBend;
    const Eigen::ArrayXd sharpness =
        differences.rowwise().squaredNorm().array() / (kSharp * kSharp);
    matrix_.bendWeights = square * (1 + 3 * sharpness);
    differences.array().colwise() *= square * (1 + sharpness);
    const Labs bent = Bends().transposed * differences;
    right -= matrix_.inkBend * (Bends().form * dyes_);
    for (std::size_t i = 0; i < between_.size(); ++i) {
      Between& pair = matrix_.between[i];
      LabSlopes labSlopes;
      const Vector3d lab = response_.Lab(Mean(inks[pair.nodes[0]], inks[pair.nodes[1]]), labSlopes);
      const Vector3d pull = pair.metric * (ToVector(between_[i].lab) - lab);
      for (int end = 0; end < 2; ++end) {
        pair.slopes[end] = labSlopes * inkSlopes[pair.nodes[end]] / 2;
        right.row(pair.nodes[end]) += (pair.slopes[end].transpose() * pull).transpose();
      }
    }
    for (int node = 0; node < kNodes; ++node) {
      Vector4d pull = right.row(node).transpose() -
                      matrix_.slopes[node].transpose() * bent.row(node).transpose();
      HoldAtLimit(dyes_.row(node).transpose(), matrix_.own[node], pull);
      right.row(node) = pull.transpose();
      matrix_.moves[node] = MovesOf(node, dyes_.row(node).transpose(), right.row(node).transpose());
      for (int dye = 0; dye < kDyeCount; ++dye) {
        if (!matrix_.moves[node][dye]) right(node, dye) = 0;
      }
    }
    return Eigen::Map<const VectorXd>(right.data(), right.size());
  }

  Dyes Moved(const VectorXd& change) const {
    Dyes next(kNodes, 4);
    for (int node = 0; node < kNodes; ++node) {
      Vector4d step = change.segment<4>(4 * node);
      // As a whole: its dyes keep the colour together.
      step *= std::min(1.0, kLongestStep / std::max(step.cwiseAbs().maxCoeff(), 1e-9));
      const Vector4d here = dyes_.row(node).transpose();
      next.row(node) = (wishes_[node].fixed ? here : Confined(here + step)).transpose();
    }
    return next;
  }

  const std::vector<NodeWish>& wishes_;
  const std::vector<BetweenWish>& between_;
  Response response_;
  SolveWeights weights_;
  const Separator& separator_;
  double limit_;
  bool blackInk_;
  Vector4d most_;  // of each dye
  std::vector<Matrix3d> metrics_;
  Dyes dyes_;
  double cost_ = 0, damping_ = kFirstDamping;
  StepMatrix matrix_;
};

}  // namespace

std::vector<DyeAmounts> SolveNodes(const std::vector<NodeWish>& wishes,
                                   const std::vector<BetweenWish>& between, const PrintModel& model,
                                   const Separator& separator, const SolveWeights& weights) {
  return Solver(wishes, between, model, separator, weights).Solve();
}

}  // namespace corvane
