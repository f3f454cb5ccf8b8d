#include "platform/toolkit/LayoutSolver.h"
#include "platform/toolkit/View.h"
#include "platform/toolkit/Window.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace quov;
using namespace quov::platform;

ViewPtr constrainedView(const ViewPtr& parent, Rect frame = {}) {
    auto v = View::make(frame);
    v->setTranslatesAutoresizingMaskIntoConstraints(false);
    if (parent) parent->addSubview(v);
    return v;
}

bool near(Rect a, Rect b) {
    return std::abs(a.origin.x - b.origin.x) + std::abs(a.origin.y - b.origin.y) + std::abs(a.size.width - b.size.width) +
               std::abs(a.size.height - b.size.height) < 1e-9;
}

TEST(LayoutSolve, FramesAreSolvedAcrossLevelsAndAxesRelativeToEachSuperview) {
    auto window = Window::make({{0, 0}, {375, 812}});
    auto box = constrainedView(window), label = constrainedView(box);
    LayoutConstraint::activateConstraints({
        box->widthAnchor().constraintEqualToConstant(318.75),
        box->heightAnchor().constraintEqualToConstant(265.625),
        box->centerXAnchor().constraintEqualToAnchor(window->centerXAnchor()),
        box->centerYAnchor().constraintEqualToAnchor(window->centerYAnchor()),
        // A constraint that names the window places a grandchild in its own superview's space.
        label->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor(), 10),
        label->bottomAnchor().constraintEqualToAnchor(window->bottomAnchor()),
        label->widthAnchor().constraintEqualToAnchor(box->widthAnchor(), -20),
        label->heightAnchor().constraintEqualToConstant(30),
    });
    window->layoutSubviews();
    EXPECT_FALSE(window->needsLayout());
    EXPECT_PRED2(near, box->frame(), (Rect{{28.125, 273.1875}, {318.75, 265.625}}));
    EXPECT_PRED2(near, label->frame(), (Rect{{-18.125, 508.8125}, {298.75, 30}}));
}

TEST(LayoutSolve, ConstraintsInstallOnTheNearestCommonAncestorAndLeaveWithTheirSubtree) {
    auto root = View::make(), a = View::make(), b = View::make(), a1 = View::make(), b1 = View::make();
    root->addSubview(a), root->addSubview(b), a->addSubview(a1), b->addSubview(b1);
    const std::tuple<const char*, ConstraintPtr, ViewPtr> cases[] = {
        {"siblings", a->leadingAnchor().constraintEqualToAnchor(b->leadingAnchor()), root},
        {"child and parent", a1->topAnchor().constraintEqualToAnchor(a->topAnchor()), a},
        {"cousins", a1->centerXAnchor().constraintEqualToAnchor(b1->centerXAnchor()), root},
        {"size constant", b1->widthAnchor().constraintEqualToConstant(10), b1},
        {"one view's two sizes", a1->widthAnchor().constraintEqualToAnchor(a1->heightAnchor()), a1},
    };
    for (const auto& [name, c, expected] : cases) {
        c->setActive(true);
        c->setActive(true);  // a second activation changes nothing
        EXPECT_EQ(c->installedOn(), expected) << name;
        const auto listed = expected->constraints();
        EXPECT_EQ(std::count(listed.begin(), listed.end(), c), 1) << name;
    }
    auto apart = View::make()->leadingAnchor().constraintEqualToAnchor(a->leadingAnchor());
    EXPECT_THROW(apart->setActive(true), std::logic_error);
    EXPECT_THROW(a->addConstraint(apart), std::logic_error);
    XAxisAnchor orphan = View::make()->leadingAnchor();  // its view is already gone
    EXPECT_THROW(orphan.constraintEqualToAnchor(a->leadingAnchor()), std::invalid_argument);

    const ConstraintPtr& sizeConstant = std::get<1>(cases[3]);
    root->removeConstraint(sizeConstant);  // installed elsewhere: the wrong view cannot remove it
    EXPECT_TRUE(sizeConstant->isActive());
    b1->removeConstraint(sizeConstant);
    // Leaving the tree drops the constraints above that name the subtree, and keeps those inside it.
    a->removeFromSuperview();
    std::vector<bool> active;
    for (const auto& c : cases) active.push_back(std::get<1>(c)->isActive());
    EXPECT_EQ(active, (std::vector<bool>{false, true, false, false, true}));
    EXPECT_EQ(a->constraints().size(), 1u);
}

TEST(LayoutSolve, UnderAndOverDeterminedAndBrokenSystemsHaveADefinedResult) {
    using Build = std::function<void(const ViewPtr& root, const ViewPtr& v)>;
    const auto widths = [](std::vector<double> ws) -> Build {
        return [ws](auto&, auto& v) {
            for (double w : ws) v->widthAnchor().constraintEqualToConstant(w)->setActive(true);
        };
    };
    // v starts at {{7, 9}, {11, 13}} in a 300x300 root; expected frame, consistent, log lines
    const std::tuple<const char*, Build, Rect, bool, std::size_t> cases[] = {
        {"width only: the rest keeps its frame", widths({50}), {{7, 9}, {50, 13}}, true, 0},
        {"redundant duplicates", widths({100, 100}), {{7, 9}, {100, 13}}, true, 0},
        {"conflict, least squares", widths({10, 20, 60}), {{7, 9}, {30, 13}}, false, 1},
        {"non-finite constants are skipped",
         [](auto& root, auto& v) {
             v->widthAnchor().constraintEqualToConstant(INFINITY)->setActive(true);
             v->heightAnchor().constraintEqualToConstant(std::nan(""))->setActive(true);
             v->leadingAnchor().constraintEqualToAnchor(root->leadingAnchor(), 40)->setActive(true);
         },
         {{40, 9}, {11, 13}}, true, 1},
        {"a view with the autoresizing flag on is read, never moved",
         [](auto& root, auto& v) {
             auto fixed = View::make({{100, 100}, {50, 50}});
             root->addSubview(fixed);
             fixed->heightAnchor().constraintEqualToConstant(999)->setActive(true);
             v->topAnchor().constraintEqualToAnchor(fixed->bottomAnchor(), 1)->setActive(true);
         },
         {{7, 151}, {11, 13}}, false, 1},
    };
    for (const auto& [name, build, expected, consistent, logLines] : cases) {
        test::LogCapture log;
        auto root = View::make({{0, 0}, {300, 300}});
        auto v = constrainedView(root, {{7, 9}, {11, 13}});
        build(root, v);
        EXPECT_EQ(LayoutSolver::solve(*root).consistent, consistent) << name;
        EXPECT_PRED2(near, v->frame(), expected) << name;
        EXPECT_EQ(log.linesStartingWith("Layout: ").size(), logLines) << name;
    }
}

// Stacked ads share no unknown: each comes out bit for bit as when alone, conflicting
// close-box widths (least squares) and a badge whose x nothing fixes included.
TEST(LayoutSolve, StackedAdsSolveAsEachWouldAlone) {
    const auto addAd = [](const ViewPtr& window, double k) {
        auto panel = constrainedView(window), close = constrainedView(panel);
        auto badge = constrainedView(panel, {{7 + k, 0}, {0, 0}});
        LayoutConstraint::activateConstraints({
            panel->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor(), 3 * k),
            panel->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor(), -k),
            panel->topAnchor().constraintEqualToAnchor(window->topAnchor(), 11 * k),
            panel->heightAnchor().constraintEqualToConstant(250.5 + k),
            close->trailingAnchor().constraintEqualToAnchor(panel->trailingAnchor(), -10),
            close->centerYAnchor().constraintEqualToAnchor(panel->centerYAnchor()),
            close->widthAnchor().constraintEqualToConstant(40),
            close->widthAnchor().constraintEqualToConstant(44 + k),
            close->heightAnchor().constraintEqualToAnchor(close->widthAnchor()),
            badge->topAnchor().constraintEqualToAnchor(close->bottomAnchor(), 2),
        });
        return std::vector<ViewPtr>{panel, close, badge};
    };
    auto stacked = Window::make({{0, 0}, {1280, 720}});
    std::vector<std::vector<ViewPtr>> inStack;
    for (int i = 0; i < 12; ++i) inStack.push_back(addAd(stacked, i));
    const auto whole = LayoutSolver::solve(*stacked);
    std::size_t rank = 0;
    for (int i = 0; i < 12; ++i) {
        auto alone = Window::make({{0, 0}, {1280, 720}});
        auto views = addAd(alone, i);
        rank += LayoutSolver::solve(*alone).rank;
        for (std::size_t v = 0; v < views.size(); ++v)
            EXPECT_EQ(inStack[i][v]->frame(), views[v]->frame()) << "ad " << i << " view " << v;
    }
    EXPECT_EQ(whole.rank, rank);
}

}  // namespace
