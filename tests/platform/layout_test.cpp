#include "platform/LayoutSolver.h"
#include "platform/View.h"
#include "platform/Window.h"
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

void pinEdges(const ViewPtr& v, const ViewPtr& to) {
    LayoutConstraint::activateConstraints({
        v->leadingAnchor().constraintEqualToAnchor(to->leadingAnchor()),
        v->trailingAnchor().constraintEqualToAnchor(to->trailingAnchor()),
        v->topAnchor().constraintEqualToAnchor(to->topAnchor()),
        v->bottomAnchor().constraintEqualToAnchor(to->bottomAnchor()),
    });
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
    pinEdges(full, window);
    auto box = constrainedView(full);
    LayoutConstraint::activateConstraints({
        box->widthAnchor().constraintEqualToConstant(318.75),
        box->heightAnchor().constraintEqualToConstant(265.625),
        box->centerXAnchor().constraintEqualToAnchor(full->centerXAnchor()),
        box->centerYAnchor().constraintEqualToAnchor(full->centerYAnchor()),
    });
    const auto r = LayoutSolver::solve(*window);
    EXPECT_TRUE(r.consistent);
    expectFrame(full, {{0, 0}, {375, 812}});
    expectFrame(box, {{28.125, 273.1875}, {318.75, 265.625}});

    // A 40-point square standing off the box's upper right corner.
    auto corner = constrainedView(full);
    LayoutConstraint::activateConstraints({
        corner->trailingAnchor().constraintEqualToAnchor(box->trailingAnchor(), 3),
        corner->bottomAnchor().constraintEqualToAnchor(box->topAnchor(), -10),
        corner->widthAnchor().constraintEqualToConstant(40),
        corner->heightAnchor().constraintEqualToConstant(40),
    });
    full->layoutSubviews();
    expectFrame(corner, {{309.875, 223.1875}, {40, 40}});
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
    EXPECT_EQ(label->constraints().size(), 1u);   // its own height
    EXPECT_EQ(panel->constraints().size(), 3u);   // its sizes, and the label's width
    EXPECT_EQ(window->constraints().size(), 4u);  // the four that name the window
    window->layoutSubviews();
    expectFrame(panel, {{100, 50}, {200, 100}});
    expectFrame(label, {{-90, 220}, {180, 30}});
    EXPECT_FALSE(window->needsLayout());
}

TEST(LayoutSolve, ConstraintsActivateOntoTheNearestCommonAncestor) {
    auto root = View::make();
    auto a = View::make(), b = View::make(), a1 = View::make(), b1 = View::make();
    root->addSubview(a);
    root->addSubview(b);
    a->addSubview(a1);
    b->addSubview(b1);
    struct Case {
        const char* name;
        ConstraintPtr c;
        ViewPtr expected;
    };
    const Case cases[] = {
        {"siblings", a->leadingAnchor().constraintEqualToAnchor(b->leadingAnchor()), root},
        {"child and parent", a1->topAnchor().constraintEqualToAnchor(a->topAnchor()), a},
        {"cousins", a1->centerXAnchor().constraintEqualToAnchor(b1->centerXAnchor()), root},
        {"size constant", b1->widthAnchor().constraintEqualToConstant(10), b1},
        {"one view's two sizes", a1->widthAnchor().constraintEqualToAnchor(a1->heightAnchor()), a1},
    };
    for (const auto& c : cases) {
        c.c->setActive(true);
        EXPECT_EQ(c.c->installedOn(), c.expected) << c.name;
        const auto listed = c.expected->constraints();
        EXPECT_EQ(std::count(listed.begin(), listed.end(), c.c), 1) << c.name;
        c.c->setActive(true);  // a second activation changes nothing
        EXPECT_EQ(c.expected->constraints().size(), listed.size()) << c.name;
    }
    EXPECT_EQ(cases[3].c->firstItem(), b1);
    EXPECT_EQ(cases[3].c->secondItem(), nullptr);

    auto stranger = View::make();
    auto apart = stranger->leadingAnchor().constraintEqualToAnchor(a->leadingAnchor());
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
    pinEdges(parent, root);
    pinEdges(child, parent);
    auto size = child->widthAnchor().constraintEqualToConstant(5);
    size->setActive(true);
    ASSERT_EQ(root->constraints().size(), 4u);
    ASSERT_EQ(parent->constraints().size(), 4u);

    // A constraint installed elsewhere is not removed by the wrong view.
    root->removeConstraint(size);
    EXPECT_TRUE(size->isActive());
    child->removeConstraint(size);
    EXPECT_FALSE(size->isActive());

    // Leaving the tree drops the constraints above that name the subtree, and
    // keeps those inside it.
    auto kept = parent->constraints();
    parent->removeFromSuperview();
    EXPECT_TRUE(root->constraints().empty());
    EXPECT_EQ(parent->constraints(), kept);

    parent->removeConstraints(parent->constraints());
    EXPECT_TRUE(parent->constraints().empty());
    for (const auto& c : kept) EXPECT_FALSE(c->isActive());
}

TEST(LayoutSolve, UnderDeterminedUnknownsKeepTheirCurrentFrame) {
    auto root = View::make({{0, 0}, {200, 100}});
    auto v = constrainedView(root, {{7, 9}, {11, 13}});
    v->widthAnchor().constraintEqualToConstant(50)->setActive(true);
    auto r = LayoutSolver::solve(*root);
    EXPECT_TRUE(r.consistent);
    EXPECT_EQ(r.rank, 1u);
    expectFrame(v, {{7, 9}, {50, 13}});

    // Centring without a size moves the view and leaves its size alone.
    v->centerXAnchor().constraintEqualToAnchor(root->centerXAnchor())->setActive(true);
    LayoutSolver::solve(*root);
    expectFrame(v, {{75, 9}, {50, 13}});

    // A solved tree solves to itself.
    LayoutSolver::solve(*root);
    expectFrame(v, {{75, 9}, {50, 13}});
}

TEST(LayoutSolve, OverDeterminedSystemsHaveADefinedResult) {
    struct Case {
        const char* name;
        std::vector<double> widths;  // each one a width == constant constraint
        double expected;
        bool consistent;
    };
    const Case cases[] = {
        {"redundant duplicates", {100, 100}, 100, true},
        {"conflict, least squares", {100, 200}, 150, false},
        {"three-way conflict", {10, 20, 60}, 30, false},
    };
    for (const auto& c : cases) {
        test::LogCapture log;
        auto root = View::make({{0, 0}, {500, 500}});
        auto v = constrainedView(root, {{1, 2}, {3, 4}});
        for (double w : c.widths) v->widthAnchor().constraintEqualToConstant(w)->setActive(true);
        const auto r = LayoutSolver::solve(*root);
        EXPECT_EQ(r.consistent, c.consistent) << c.name;
        EXPECT_NEAR(v->frame().size.width, c.expected, 1e-9) << c.name;
        expectFrame(v, {{1, 2}, {v->frame().size.width, 4}});
        EXPECT_EQ(log.linesStartingWith("Layout: ").size(), c.consistent ? 0u : 1u) << c.name;
    }

    // Leading, trailing and width together agree: no conflict, exact answer.
    auto root = View::make({{0, 0}, {300, 300}});
    auto v = constrainedView(root);
    LayoutConstraint::activateConstraints({
        v->leadingAnchor().constraintEqualToAnchor(root->leadingAnchor(), 10),
        v->trailingAnchor().constraintEqualToAnchor(root->trailingAnchor(), -10),
        v->widthAnchor().constraintEqualToConstant(280),
    });
    EXPECT_TRUE(LayoutSolver::solve(*root).consistent);
    EXPECT_NEAR(v->frame().origin.x, 10, 1e-9);
    EXPECT_NEAR(v->frame().size.width, 280, 1e-9);
}

TEST(LayoutSolve, NonFiniteConstantsAreSkippedAndFixedFramesStayFixed) {
    test::LogCapture log;
    auto root = View::make({{0, 0}, {300, 300}});
    auto v = constrainedView(root, {{5, 5}, {20, 20}});
    v->widthAnchor().constraintEqualToConstant(std::numeric_limits<double>::infinity())->setActive(true);
    v->heightAnchor().constraintEqualToConstant(std::nan(""))->setActive(true);
    v->leadingAnchor().constraintEqualToAnchor(root->leadingAnchor(), 40)->setActive(true);
    const auto r = LayoutSolver::solve(*root);
    EXPECT_EQ(r.skipped, 2u);
    expectFrame(v, {{40, 5}, {20, 20}});
    EXPECT_EQ(log.linesStartingWith("Layout: skipped").size(), 1u);

    // The autoresizing flag on: constraints read the frame but never move it.
    auto fixed = View::make({{100, 100}, {50, 50}});
    root->addSubview(fixed);
    auto follower = constrainedView(root);
    LayoutConstraint::activateConstraints({
        fixed->widthAnchor().constraintEqualToConstant(999),
        follower->topAnchor().constraintEqualToAnchor(fixed->bottomAnchor(), 1),
    });
    LayoutSolver::solve(*root);
    expectFrame(fixed, {{100, 100}, {50, 50}});
    EXPECT_NEAR(follower->frame().origin.y, 151, 1e-9);
}

TEST(LayoutSolve, RandomSystemsNeverThrowAndGiveFiniteFrames) {
    test::LogCapture quiet;
    std::mt19937 rng(1234);
    const LayoutAttribute xs[] = {LayoutAttribute::Leading, LayoutAttribute::Trailing,
                                  LayoutAttribute::CenterX, LayoutAttribute::Width};
    const LayoutAttribute ys[] = {LayoutAttribute::Top, LayoutAttribute::Bottom,
                                  LayoutAttribute::CenterY, LayoutAttribute::Height};
    for (int round = 0; round < 50; ++round) {
        auto root = View::make({{0, 0}, {640, 480}});
        std::vector<ViewPtr> views{root};
        for (int i = 0; i < 12; ++i) {
            auto parent = views[rng() % views.size()];
            views.push_back(constrainedView(parent, {{double(rng() % 50), 0}, {10, 10}}));
        }
        for (int i = 0; i < 30; ++i) {
            auto a = views[rng() % views.size()], b = views[rng() % views.size()];
            const bool horizontal = rng() % 2;
            const auto attrA = (horizontal ? xs : ys)[rng() % 4];
            const auto attrB = (horizontal ? xs : ys)[rng() % 4];
            auto c = std::make_shared<LayoutConstraint>(a, attrA, b, attrB, double(rng() % 200) - 100);
            ASSERT_NO_THROW(c->setActive(true));
        }
        ASSERT_NO_THROW(LayoutSolver::solve(*root));
        for (const auto& v : views) {
            const Rect f = v->frame();
            ASSERT_TRUE(std::isfinite(f.origin.x) && std::isfinite(f.origin.y) &&
                        std::isfinite(f.size.width) && std::isfinite(f.size.height));
        }
    }
}

}  // namespace
