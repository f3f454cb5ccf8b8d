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

TEST(LayoutSolve, RandomSystemsNeverThrowAndGiveFiniteFrames) {
    test::LogCapture quiet;
    std::mt19937 rng(1234);
    const LayoutAttribute xs[] = {LayoutAttribute::Leading, LayoutAttribute::Trailing, LayoutAttribute::CenterX,
                                  LayoutAttribute::Width};
    const LayoutAttribute ys[] = {LayoutAttribute::Top, LayoutAttribute::Bottom, LayoutAttribute::CenterY,
                                  LayoutAttribute::Height};
    for (int round = 0; round < 50; ++round) {
        auto root = View::make({{0, 0}, {640, 480}});
        std::vector<ViewPtr> views{root};
        for (int i = 0; i < 12; ++i)
            views.push_back(constrainedView(views[rng() % views.size()], {{double(rng() % 50), 0}, {10, 10}}));
        for (int i = 0; i < 30; ++i) {
            const auto* axis = rng() % 2 ? xs : ys;
            const auto a = views[rng() % views.size()], b = views[rng() % views.size()];
            const auto attrA = axis[rng() % 4], attrB = axis[rng() % 4];
            auto c = std::make_shared<LayoutConstraint>(a, attrA, b, attrB, double(rng() % 200) - 100);
            ASSERT_NO_THROW(c->setActive(true));
        }
        ASSERT_NO_THROW(LayoutSolver::solve(*root));
        for (const auto& v : views) {
            const Rect f = v->frame();
            ASSERT_TRUE(std::isfinite(f.origin.x + f.origin.y + f.size.width + f.size.height));
        }
    }
}

}  // namespace

namespace {

// An ad over the window: a panel at an offset, an image centred in it, a close box
// with conflicting widths (least squares) and a badge whose x nothing fixes (kept).
std::vector<ViewPtr> addAd(const ViewPtr& window, int i) {
    const double k = i;
    auto panel = constrainedView(window);
    auto image = constrainedView(panel);
    auto close = constrainedView(panel);
    auto badge = constrainedView(panel, {{7 + k, 0}, {0, 0}});
    LayoutConstraint::activateConstraints({
        panel->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor(), 3 * k),
        panel->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor(), -k),
        panel->topAnchor().constraintEqualToAnchor(window->topAnchor(), 11 * k),
        panel->heightAnchor().constraintEqualToConstant(250.5 + k),
        image->centerXAnchor().constraintEqualToAnchor(panel->centerXAnchor()),
        image->centerYAnchor().constraintEqualToAnchor(panel->centerYAnchor()),
        image->widthAnchor().constraintEqualToConstant(300),
        image->heightAnchor().constraintEqualToAnchor(image->widthAnchor(), 0),
        close->leadingAnchor().constraintEqualToAnchor(image->trailingAnchor(), 10),
        close->topAnchor().constraintEqualToAnchor(image->topAnchor(), -3),
        close->widthAnchor().constraintEqualToConstant(40),
        close->widthAnchor().constraintEqualToConstant(44 + k),
        close->heightAnchor().constraintEqualToAnchor(close->widthAnchor()),
        badge->topAnchor().constraintEqualToAnchor(close->bottomAnchor(), 2),
        badge->widthAnchor().constraintEqualToConstant(20),
        badge->heightAnchor().constraintEqualToConstant(12),
    });
    return {panel, image, close, badge};
}

}  // namespace

TEST(LayoutSolve, StackedAdsSolveAsEachWouldAlone) {
    // Ads share no unknown, so each one's frames must come out bit for bit as when
    // it is the only one in its window, however many are stacked.
    constexpr int kAds = 12;
    auto stacked = Window::make({{0, 0}, {1280, 720}});
    std::vector<std::vector<ViewPtr>> inStack;
    for (int i = 0; i < kAds; ++i) inStack.push_back(addAd(stacked, i));
    auto whole = LayoutSolver::solve(*stacked);
    EXPECT_FALSE(whole.consistent) << "the close boxes' widths conflict";

    std::size_t rank = 0;
    for (int i = 0; i < kAds; ++i) {
        auto alone = Window::make({{0, 0}, {1280, 720}});
        auto views = addAd(alone, i);
        rank += LayoutSolver::solve(*alone).rank;
        for (std::size_t v = 0; v < views.size(); ++v) {
            const Rect a = views[v]->frame(), s = inStack[i][v]->frame();
            EXPECT_EQ(s.origin.x, a.origin.x) << "ad " << i << " view " << v;
            EXPECT_EQ(s.origin.y, a.origin.y) << "ad " << i << " view " << v;
            EXPECT_EQ(s.size.width, a.size.width) << "ad " << i << " view " << v;
            EXPECT_EQ(s.size.height, a.size.height) << "ad " << i << " view " << v;
        }
        EXPECT_EQ(inStack[i][3]->frame().origin.x, 7 + i) << "free x keeps its value";
        EXPECT_EQ(inStack[i][2]->frame().size.width, 42 + i * 0.5) << "least squares between 40 and 44+i";
    }
    EXPECT_EQ(whole.rank, rank);
}
