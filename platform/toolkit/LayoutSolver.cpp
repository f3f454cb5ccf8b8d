#include "platform/toolkit/LayoutSolver.h"

#include "platform/runtime/Log.h"
#include "platform/toolkit/View.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

namespace quov::platform {
namespace {

enum Component { kX = 0, kY = 1, kW = 2, kH = 3 };

/// A dense row-major matrix; the systems are a few dozen unknowns at most.
struct Matrix {
    std::size_t rows = 0, cols = 0;
    std::vector<double> a;
    Matrix(std::size_t r, std::size_t c) : rows(r), cols(c), a(r * c, 0.0) {}
    double& at(std::size_t r, std::size_t c) { return a[r * cols + c]; }
    double at(std::size_t r, std::size_t c) const { return a[r * cols + c]; }
};

/// A linear expression over the unknowns plus a constant.
struct Expr {
    std::vector<std::pair<int, double>> terms;
    double constant = 0;
    void add(int var, double coef, double value) {
        if (var >= 0)
            terms.emplace_back(var, coef);
        else
            constant += coef * value;
    }
};

struct Tree {
    View* root = nullptr;
    std::vector<View*> views;
    std::unordered_map<const View*, int> firstVar;  // 4 per unknown view; -1 if fixed
    std::vector<double> current;                    // current value of each unknown

    void collect(View* v) {
        views.push_back(v);
        firstVar.emplace(v, -1);
        for (const auto& s : v->subviews()) collect(s.get());
    }
    bool contains(const View* v) const { return firstVar.count(v) != 0; }

    void makeUnknown(View* v) {
        int& first = firstVar[v];
        if (first >= 0 || v->translatesAutoresizingMaskIntoConstraints()) return;
        first = static_cast<int>(current.size());
        const Rect f = v->frame();
        for (double value : {f.origin.x, f.origin.y, f.size.width, f.size.height})
            current.push_back(std::isfinite(value) ? value : 0.0);
    }

    /// Unknown index of one frame component, or -1 when it is fixed. The root's
    /// position is never unknown: its space is the one everything is measured in.
    int var(const View* v, Component c) const {
        const int first = firstVar.at(v);
        if (first < 0 || (v == root && (c == kX || c == kY))) return -1;
        return first + c;
    }
    static double value(const View* v, Component c) {
        const Rect f = v->frame();
        const double x[] = {f.origin.x, f.origin.y, f.size.width, f.size.height};
        return std::isfinite(x[c]) ? x[c] : 0.0;
    }

    Expr anchor(const View* v, LayoutAttribute a) const {
        Expr e;
        const bool horizontal = a == LayoutAttribute::Leading || a == LayoutAttribute::Trailing ||
                                a == LayoutAttribute::CenterX || a == LayoutAttribute::Width;
        const Component pos = horizontal ? kX : kY;
        const Component size = horizontal ? kW : kH;
        double sizeCoef = 0;
        switch (a) {
            case LayoutAttribute::Width:
            case LayoutAttribute::Height:
                e.add(var(v, size), 1.0, value(v, size));
                return e;
            case LayoutAttribute::Trailing:
            case LayoutAttribute::Bottom: sizeCoef = 1.0; break;
            case LayoutAttribute::CenterX:
            case LayoutAttribute::CenterY: sizeCoef = 0.5; break;
            default: break;
        }
        for (const View* u = v; u && u != root;) {
            e.add(var(u, pos), 1.0, value(u, pos));
            auto parent = u->superview();
            u = parent.get();
        }
        if (sizeCoef != 0) e.add(var(v, size), sizeCoef, value(v, size));
        return e;
    }
};

/// Reduces m to row echelon form in place (Gauss-Jordan, partial pivoting) and
/// returns the pivot column of each independent row.
std::vector<std::size_t> reduce(Matrix& m, std::vector<double>& rhs) {
    double scale = 1.0;
    for (double v : m.a) scale = std::max(scale, std::fabs(v));
    const double tol = 1e-10 * scale;
    std::vector<std::size_t> pivots;
    std::size_t row = 0;
    for (std::size_t col = 0; col < m.cols && row < m.rows; ++col) {
        std::size_t best = row;
        for (std::size_t r = row + 1; r < m.rows; ++r)
            if (std::fabs(m.at(r, col)) > std::fabs(m.at(best, col))) best = r;
        if (std::fabs(m.at(best, col)) <= tol) continue;
        if (best != row) {
            for (std::size_t c = 0; c < m.cols; ++c) std::swap(m.at(best, c), m.at(row, c));
            std::swap(rhs[best], rhs[row]);
        }
        const double p = m.at(row, col);
        for (std::size_t c = 0; c < m.cols; ++c) m.at(row, c) /= p;
        rhs[row] /= p;
        for (std::size_t r = 0; r < m.rows; ++r) {
            if (r == row) continue;
            const double f = m.at(r, col);
            if (f == 0) continue;
            for (std::size_t c = col; c < m.cols; ++c) m.at(r, c) -= f * m.at(row, c);
            rhs[r] -= f * rhs[row];
        }
        pivots.push_back(col);
        ++row;
    }
    return pivots;
}

/// The minimum-norm d with A d = r in the least-squares sense: the normal
/// equations pick the best fit, and among their solutions the one in the row
/// space (d = R^T y) is the shortest, i.e. the smallest change to the frames.
std::vector<double> minimumNormLeastSquares(const Matrix& A, const std::vector<double>& r,
                                            std::size_t& rank) {
    const std::size_t n = A.cols;
    Matrix N(n, n);
    std::vector<double> c(n, 0.0);
    for (std::size_t k = 0; k < A.rows; ++k)
        for (std::size_t i = 0; i < n; ++i) {
            const double aki = A.at(k, i);
            if (aki == 0) continue;
            c[i] += aki * r[k];
            for (std::size_t j = 0; j < n; ++j) N.at(i, j) += aki * A.at(k, j);
        }
    const auto pivots = reduce(N, c);
    rank = pivots.size();
    // R R^T y = s over the independent rows, then d = R^T y.
    Matrix G(rank, rank);
    std::vector<double> s(c.begin(), c.begin() + static_cast<std::ptrdiff_t>(rank));
    for (std::size_t i = 0; i < rank; ++i)
        for (std::size_t j = 0; j < rank; ++j) {
            double dot = 0;
            for (std::size_t k = 0; k < n; ++k) dot += N.at(i, k) * N.at(j, k);
            G.at(i, j) = dot;
        }
    reduce(G, s);  // G is symmetric positive definite: full rank, s becomes y
    std::vector<double> d(n, 0.0);
    for (std::size_t i = 0; i < rank; ++i)
        for (std::size_t k = 0; k < n; ++k) d[k] += N.at(i, k) * s[i];
    return d;
}

/// One equation's coefficients, by unknown, merged and without zeros.
using SparseRow = std::vector<std::pair<std::size_t, double>>;

double dot(const SparseRow& row, const std::vector<double>& x) {
    double sum = 0;
    for (auto [j, a] : row) sum += a * x[j];
    return sum;
}

/// What A x = b still misses, equation by equation (b - A x); true when every
/// equation holds exactly.
bool residualOf(const std::vector<SparseRow>& A, const std::vector<double>& b, const std::vector<double>& x,
                std::vector<double>& residual) {
    bool exact = true;
    for (std::size_t i = 0; i < A.size(); ++i) {
        residual[i] = b[i] - dot(A[i], x);
        if (residual[i] != 0) exact = false;
    }
    return exact;
}

std::size_t findRoot(std::vector<std::size_t>& parent, std::size_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
}

/// Equations that share no unknown, directly or through others, are independent
/// systems: the minimum-norm least-squares solution of the whole is theirs side by
/// side. Stacked ads, and the two axes of one, are such groups; solving each apart
/// keeps the cost linear in their number instead of cubic in the window's views.
std::vector<double> solveByComponent(const std::vector<SparseRow>& rows, const std::vector<double>& r,
                                     std::size_t n, std::size_t& rank) {
    std::vector<std::size_t> parent(n);
    for (std::size_t j = 0; j < n; ++j) parent[j] = j;
    for (const auto& row : rows)
        for (std::size_t k = 1; k < row.size(); ++k) {
            const std::size_t a = findRoot(parent, row[0].first), b = findRoot(parent, row[k].first);
            if (a != b) parent[std::max(a, b)] = std::min(a, b);
        }
    // Members of each group in column order, so each group's system is laid out as
    // it would be inside the whole one.
    std::vector<std::vector<std::size_t>> groupCols(n), groupRows(n);
    for (std::size_t j = 0; j < n; ++j) groupCols[findRoot(parent, j)].push_back(j);
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (!rows[i].empty()) groupRows[findRoot(parent, rows[i][0].first)].push_back(i);

    std::vector<double> d(n, 0.0);
    std::vector<std::size_t> local(n, 0);
    rank = 0;
    for (std::size_t g = 0; g < n; ++g) {
        const auto& gr = groupRows[g];
        const auto& gc = groupCols[g];
        if (gr.empty()) continue;
        for (std::size_t j = 0; j < gc.size(); ++j) local[gc[j]] = j;
        Matrix sub(gr.size(), gc.size());
        std::vector<double> subR(gr.size());
        for (std::size_t i = 0; i < gr.size(); ++i) {
            subR[i] = r[gr[i]];
            for (auto [j, a] : rows[gr[i]]) sub.at(i, local[j]) = a;
        }
        std::size_t subRank = 0;
        const auto subD = minimumNormLeastSquares(sub, subR, subRank);
        rank += subRank;
        for (std::size_t j = 0; j < gc.size(); ++j) d[gc[j]] = subD[j];
    }
    return d;
}

}  // namespace

LayoutSolver::Result LayoutSolver::solve(View& root) {
    Result result;
    Tree tree;
    tree.root = &root;
    tree.collect(&root);

    struct Equation {
        const LayoutConstraint* c;
        View* first;
        View* second;
    };
    std::vector<Equation> equations;
    for (View* v : tree.views)
        for (const auto& c : v->constraints()) {
            auto first = c->firstItem();
            auto second = c->secondItem();
            const bool itemsOk = first && tree.contains(first.get()) &&
                                 (!c->secondAttribute() || (second && tree.contains(second.get())));
            if (!itemsOk || !std::isfinite(c->constant())) {
                ++result.skipped;
                continue;
            }
            equations.push_back({c.get(), first.get(), second.get()});
        }
    for (const auto& e : equations) {
        tree.makeUnknown(e.first);
        if (e.second) tree.makeUnknown(e.second);
    }
    if (result.skipped)
        QVLog("Layout: skipped %lu constraints (gone items or non-finite constants)",
              std::to_string(result.skipped));

    const std::size_t n = tree.current.size();
    result.unknowns = n;
    result.equations = equations.size();
    if (n == 0 || equations.empty()) return result;

    // One row per constraint: first - second == constant, moved to the unknowns' side.
    std::vector<SparseRow> A(equations.size());
    std::vector<double> b(equations.size(), 0.0);
    for (std::size_t i = 0; i < equations.size(); ++i) {
        const auto& eq = equations[i];
        Expr lhs = tree.anchor(eq.first, eq.c->firstAttribute());
        double rhs = eq.c->constant() - lhs.constant;
        SparseRow& row = A[i];
        for (auto [var, coef] : lhs.terms) row.emplace_back(static_cast<std::size_t>(var), coef);
        if (eq.c->secondAttribute()) {
            Expr other = tree.anchor(eq.second, *eq.c->secondAttribute());
            rhs += other.constant;
            for (auto [var, coef] : other.terms) row.emplace_back(static_cast<std::size_t>(var), -coef);
        }
        // Sum repeated unknowns in term order, as a dense row would, and drop the ones that cancel.
        std::stable_sort(row.begin(), row.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
        SparseRow merged;
        for (auto [j, a] : row) {
            if (!merged.empty() && merged.back().first == j)
                merged.back().second += a;
            else
                merged.emplace_back(j, a);
        }
        merged.erase(std::remove_if(merged.begin(), merged.end(), [](const auto& t) { return t.second == 0; }),
                     merged.end());
        row = std::move(merged);
        b[i] = rhs;
    }

    // Solve for the change from the current frames, so free unknowns stay put; the
    // first solve always runs, as it is the one that measures the rank. Normal
    // equations lose a few bits; up to two more rounds on the leftover residual bring
    // frames that are exact in binary (28.125, 273.1875) back to exactly that.
    std::vector<double> x = tree.current;
    std::vector<double> residual(b.size());
    for (int round = 0; round < 3; ++round) {
        if (residualOf(A, b, x, residual) && round > 0) break;
        std::size_t rank = 0;
        const auto correction = solveByComponent(A, residual, n, rank);
        if (round == 0) result.rank = rank;
        for (std::size_t j = 0; j < n; ++j) x[j] += correction[j];
    }
    // What noise is left sits a few ulps off a fine binary grid (1/2^20 point):
    // snap to it so equal edges compare equal; other values are left alone.
    for (double& v : x) {
        const double scaled = v * 1048576.0;
        const double nearest = std::round(scaled);
        if (std::fabs(scaled - nearest) < 1e-3 && std::fabs(nearest) < 9e15) v = nearest / 1048576.0;
    }

    residualOf(A, b, x, residual);
    for (std::size_t i = 0; i < A.size(); ++i)
        if (std::fabs(residual[i]) > 1e-6 * (1.0 + std::fabs(b[i]))) result.consistent = false;
    if (!result.consistent)
        QVLog("Layout: %lu constraints cannot all hold; solved in the least-squares sense",
              std::to_string(equations.size()));

    for (View* v : tree.views) {
        const int first = tree.firstVar[v];
        if (first < 0) continue;
        const auto f = static_cast<std::size_t>(first);
        Rect frame = v->frame();
        if (v != &root) frame.origin = {x[f + kX], x[f + kY]};
        frame.size = {x[f + kW], x[f + kH]};
        if (std::isfinite(frame.origin.x) && std::isfinite(frame.origin.y) &&
            std::isfinite(frame.size.width) && std::isfinite(frame.size.height))
            v->setSolvedFrame(frame);
    }
    return result;
}

}  // namespace quov::platform
