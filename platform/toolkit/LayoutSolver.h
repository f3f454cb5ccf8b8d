#pragma once

#include <cstddef>

namespace quov::platform {

class View;

/// Solves the constraints of one view tree as a linear system.
///
/// Unknowns: the frame (x, y, width, height, in the superview's space) of every
/// view whose autoresizing flag is off and that some constraint names; for the
/// root only width and height (its own space starts at (0, 0)). Every other frame
/// is a fixed input. Each constraint is one linear equation over anchor positions
/// in the root's space.
///
/// The rule for systems that are not exactly determined:
///  - conflicting constraints are met in the least-squares sense, each weighing
///    the same (and the solve logs one line);
///  - whatever the constraints leave free keeps its current value: among all
///    best solutions the one closest to the current frames is taken;
///  - a constraint with a non-finite constant, or one whose items are gone or
///    outside the tree, is skipped.
/// So a solved tree solves to itself again, and nothing ever throws or loops.
class LayoutSolver {
public:
    struct Result {
        std::size_t unknowns = 0;
        std::size_t equations = 0;
        std::size_t rank = 0;           // independent equations
        std::size_t skipped = 0;        // constraints left out
        bool consistent = true;         // every equation holds after the solve
    };

    /// Assigns the solved frames. Main thread.
    static Result solve(View& root);
};

}  // namespace quov::platform
