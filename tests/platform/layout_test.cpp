#include "platform/toolkit/LayoutSolver.h"
#include "platform/toolkit/View.h"
#include "platform/toolkit/Window.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

using namespace quov;
using namespace quov::platform;

ViewPtr constrainedView(const ViewPtr& parent, Rect frame = {}) {
    auto v = View::make(frame);
    v->setTranslatesAutoresizingMaskIntoConstraints(false);
    if (parent) parent->addSubview(v);
    return v;
}

void expectFrame(const ViewPtr& v, Rect expected) {
    const Rect f = v->frame();
    EXPECT_NEAR(f.origin.x, expected.origin.x, 1e-9);
    EXPECT_NEAR(f.origin.y, expected.origin.y, 1e-9);
    EXPECT_NEAR(f.size.width, expected.size.width, 1e-9);
    EXPECT_NEAR(f.size.height, expected.size.height, 1e-9);
}

TEST(LayoutSolve, CentredBoxInAFullScreenViewSitsAtTheExpectedOrigin) {
    auto window = Window::make({{0, 0}, {375, 812}});
    auto full = constrainedView(window);
    auto box = constrainedView(full);
    LayoutConstraint::activateConstraints({
        full->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor()),
        full->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor()),
        full->topAnchor().constraintEqualToAnchor(window->topAnchor()),
        full->bottomAnchor().constraintEqualToAnchor(window->bottomAnchor()),
        box->widthAnchor().constraintEqualToConstant(318.75),
        box->heightAnchor().constraintEqualToConstant(265.625),
        box->centerXAnchor().constraintEqualToAnchor(full->centerXAnchor()),
        box->centerYAnchor().constraintEqualToAnchor(full->centerYAnchor()),
    });
    EXPECT_TRUE(LayoutSolver::solve(*window).consistent);
    expectFrame(full, {{0, 0}, {375, 812}});
    expectFrame(box, {{28.125, 273.1875}, {318.75, 265.625}});
}

TEST(LayoutSolve, FramesAreRelativeToTheSuperviewWhenConstraintsCrossLevels) {
    auto window = Window::make({{0, 0}, {400, 300}});
    auto panel = constrainedView(window);
    auto label = constrainedView(panel);
    LayoutConstraint::activateConstraints({
        panel->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor(), 100),
        panel->topAnchor().constraintEqualToAnchor(window->topAnchor(), 50),
        panel->widthAnchor().constraintEqualToConstant(200),
        panel->heightAnchor().constraintEqualToConstant(100),
        label->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor(), 10),
        label->bottomAnchor().constraintEqualToAnchor(window->bottomAnchor()),
        label->widthAnchor().constraintEqualToAnchor(panel->widthAnchor(), -20),
        label->heightAnchor().constraintEqualToConstant(30),
    });
    window->layoutSubviews();
    expectFrame(panel, {{100, 50}, {200, 100}});
    expectFrame(label, {{-90, 220}, {180, 30}});
    EXPECT_FALSE(window->needsLayout());
}

TEST(LayoutSolve, ASizeTiedAcrossAxesIsSolvedWithBothAxes) {
    // A square tile: its height follows its width, which only the x axis fixes.
    auto window = Window::make({{0, 0}, {400, 300}});
    auto tile = constrainedView(window);
    test::LogCapture log;
    LayoutConstraint::activateConstraints({
        tile->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor(), 10),
        tile->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor(), -290),
        tile->topAnchor().constraintEqualToAnchor(window->topAnchor(), 20),
        tile->heightAnchor().constraintEqualToAnchor(tile->widthAnchor()),
    });
    window->layoutSubviews();
    expectFrame(tile, {{10, 20}, {100, 100}});
    EXPECT_TRUE(log.lines().empty()) << "a consistent system logs nothing";
}

TEST(LayoutSolve, ConstraintsActivateOntoTheNearestCommonAncestor) {
    auto root = View::make();
    auto a = View::make(), b = View::make(), a1 = View::make(), b1 = View::make();
    root->addSubview(a);
    root->addSubview(b);
    a->addSubview(a1);
    b->addSubview(b1);
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
    EXPECT_EQ(std::get<1>(cases[3])->firstItem(), b1);
    EXPECT_EQ(std::get<1>(cases[3])->secondItem(), nullptr);

    auto apart = View::make()->leadingAnchor().constraintEqualToAnchor(a->leadingAnchor());
    EXPECT_THROW(apart->setActive(true), std::logic_error);
    EXPECT_FALSE(apart->isActive());
    EXPECT_THROW(a->addConstraint(apart), std::logic_error);
    XAxisAnchor orphan = View::make()->leadingAnchor();  // its view is already gone
    EXPECT_THROW(orphan.constraintEqualToAnchor(a->leadingAnchor()), std::invalid_argument);
}

TEST(LayoutSolve, RemovalUninstallsOnlyWhatItShould) {
    auto root = View::make({{0, 0}, {100, 100}});
    auto parent = constrainedView(root);
    auto child = constrainedView(parent);
    LayoutConstraint::activateConstraints({
        parent->leadingAnchor().constraintEqualToAnchor(root->leadingAnchor()),
        parent->topAnchor().constraintEqualToAnchor(root->topAnchor()),
        child->leadingAnchor().constraintEqualToAnchor(parent->leadingAnchor()),
        child->topAnchor().constraintEqualToAnchor(parent->topAnchor()),
    });
    auto size = child->widthAnchor().constraintEqualToConstant(5);
    size->setActive(true);

    root->removeConstraint(size);  // installed elsewhere: the wrong view cannot remove it
    EXPECT_TRUE(size->isActive());
    child->removeConstraint(size);
    EXPECT_FALSE(size->isActive());

    // Leaving the tree drops the constraints above that name the subtree, and keeps those inside it.
    auto kept = parent->constraints();
    ASSERT_EQ(kept.size(), 2u);
    parent->removeFromSuperview();
    EXPECT_TRUE(root->constraints().empty());
    EXPECT_EQ(parent->constraints(), kept);
    parent->removeConstraints(kept);
    EXPECT_TRUE(parent->constraints().empty());
    for (const auto& c : kept) EXPECT_FALSE(c->isActive());
}

TEST(LayoutSolve, UnderAndOverDeterminedAndBrokenSystemsHaveADefinedResult) {
    using Build = std::function<void(const ViewPtr& root, const ViewPtr& v)>;
    const auto widths = [](std::vector<double> ws) -> Build {
        return [ws](const ViewPtr&, const ViewPtr& v) {
            for (double w : ws) v->widthAnchor().constraintEqualToConstant(w)->setActive(true);
        };
    };
    struct Case {
        const char* name;
        Build build;
        Rect expected;  // v starts at {{7, 9}, {11, 13}} in a 300x300 root
        bool consistent;
        std::size_t logLines;
    };
    const Case cases[] = {
        {"width only: the rest keeps its frame", widths({50}), {{7, 9}, {50, 13}}, true, 0},
        {"width and centre: y and height keep theirs",
         [](auto& root, auto& v) {
             v->widthAnchor().constraintEqualToConstant(50)->setActive(true);
             v->centerXAnchor().constraintEqualToAnchor(root->centerXAnchor())->setActive(true);
         },
         {{125, 9}, {50, 13}}, true, 0},
        {"redundant duplicates", widths({100, 100}), {{7, 9}, {100, 13}}, true, 0},
        {"conflict, least squares", widths({100, 200}), {{7, 9}, {150, 13}}, false, 1},
        {"three-way conflict", widths({10, 20, 60}), {{7, 9}, {30, 13}}, false, 1},
        {"leading, trailing and width agree",
         [](auto& root, auto& v) {
             LayoutConstraint::activateConstraints({
                 v->leadingAnchor().constraintEqualToAnchor(root->leadingAnchor(), 10),
                 v->trailingAnchor().constraintEqualToAnchor(root->trailingAnchor(), -10),
                 v->widthAnchor().constraintEqualToConstant(280),
             });
         },
         {{10, 9}, {280, 13}}, true, 0},
        {"non-finite constants are skipped",
         [](auto& root, auto& v) {
             v->widthAnchor().constraintEqualToConstant(std::numeric_limits<double>::infinity())->setActive(true);
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        test::LogCapture log;
        auto root = View::make({{0, 0}, {300, 300}});
        auto v = constrainedView(root, {{7, 9}, {11, 13}});
        c.build(root, v);
        EXPECT_EQ(LayoutSolver::solve(*root).consistent, c.consistent);
        expectFrame(v, c.expected);
        EXPECT_EQ(log.linesStartingWith("Layout: ").size(), c.logLines);
        LayoutSolver::solve(*root);  // a solved tree solves to itself
        expectFrame(v, c.expected);
    }
}

}  // namespace
