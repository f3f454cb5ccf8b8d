#include "platform/toolkit/View.h"

#include "platform/toolkit/LayoutSolver.h"
#include "platform/toolkit/Painter.h"
#include "platform/toolkit/Touch.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace quov::platform {

// ---------------------------------------------------------------- constraints

LayoutConstraint::LayoutConstraint(const ViewPtr& first, LayoutAttribute firstAttribute,
                                   const ViewPtr& second,
                                   std::optional<LayoutAttribute> secondAttribute, double constant)
    : first_(first),
      second_(second),
      firstAttribute_(firstAttribute),
      secondAttribute_(secondAttribute),
      constant_(constant) {
    if (!first) throw std::invalid_argument("layout constraint: the first item's view is gone");
    if (secondAttribute && !second)
        throw std::invalid_argument("layout constraint: the second item's view is gone");
}

void LayoutConstraint::setConstant(double constant) {
    constant_ = constant;
    if (auto on = installedOn()) on->setNeedsLayout();
}

void LayoutConstraint::setActive(bool active) {
    if (!active) {
        if (auto on = installedOn()) on->uninstallConstraint(this);
        return;
    }
    if (isActive()) return;
    auto first = firstItem();
    auto second = secondItem();
    if (!first || (secondAttribute_ && !second))
        throw std::logic_error("layout constraint: cannot activate, an item's view is gone");
    ViewPtr target = first;
    if (second) {
        target = nullptr;
        for (ViewPtr s = second; s && !target; s = s->superview())
            if (first->isDescendantOfView(*s)) target = s;
        if (!target)
            throw std::logic_error(
                "layout constraint: cannot activate, its items have no common ancestor");
    }
    target->installConstraint(shared_from_this());
}

void LayoutConstraint::activateConstraints(const std::vector<ConstraintPtr>& constraints) {
    for (const auto& c : constraints)
        if (c) c->setActive(true);
}

// ---------------------------------------------------------------- the tree

View::~View() = default;

void View::addSubview(const ViewPtr& view) {
    if (!view) throw std::invalid_argument("addSubview: the view is null");
    if (isDescendantOfView(*view))
        throw std::invalid_argument("addSubview: a view cannot contain itself or its ancestor");
    auto self = weak_from_this();
    if (self.expired()) throw std::logic_error("addSubview: views must be owned by shared_ptr");
    if (view->superview().get() == this) {
        // already ours: only bring it to the front
        auto it = std::find(subviews_.begin(), subviews_.end(), view);
        std::rotate(it, it + 1, subviews_.end());
        return;
    }
    view->removeFromSuperview();
    subviews_.push_back(view);
    view->superview_ = self;
    setNeedsLayout();
}

void View::removeFromSuperview() {
    auto parent = superview();
    if (!parent) return;
    auto self = shared_from_this();  // the parent's reference goes below
    for (ViewPtr a = parent; a; a = a->superview()) a->removeConstraintsReferencingSubtree(*this);
    auto& siblings = parent->subviews_;
    siblings.erase(std::remove(siblings.begin(), siblings.end(), self), siblings.end());
    superview_.reset();
    parent->setNeedsLayout();
    setNeedsLayout();
}

bool View::isDescendantOfView(const View& ancestor) const {
    for (const View* v = this; v;) {
        if (v == &ancestor) return true;
        auto parent = v->superview_.lock();
        v = parent.get();  // kept alive by its own owner while we walk
    }
    return false;
}

ViewPtr View::root() {
    ViewPtr v = shared_from_this();
    while (auto parent = v->superview()) v = parent;
    return v;
}

void View::removeConstraintsReferencingSubtree(const View& subtree) {
    for (const auto& c : constraints()) {
        auto first = c->firstItem();
        auto second = c->secondItem();
        if ((first && first->isDescendantOfView(subtree)) ||
            (second && second->isDescendantOfView(subtree)))
            uninstallConstraint(c.get());
    }
}

// ---------------------------------------------------------------- geometry

void View::setFrame(Rect frame) {
    frame_ = frame;
    setNeedsLayout();
}

Point View::originInRoot() const {
    Point origin;
    for (const View* v = this;;) {
        auto parent = v->superview_.lock();
        if (!parent) break;  // the root's own space starts at (0, 0)
        origin.x += v->frame_.origin.x;
        origin.y += v->frame_.origin.y;
        v = parent.get();
    }
    return origin;
}

Point View::convertPointFromRoot(Point p) const {
    const Point o = originInRoot();
    return {p.x - o.x, p.y - o.y};
}

void View::setAlpha(double alpha) {
    alpha_ = alpha >= 0 ? std::min(alpha, 1.0) : 0.0;  // NaN reads as transparent
}

void View::setTranslatesAutoresizingMaskIntoConstraints(bool on) {
    translatesAutoresizing_ = on;
    setNeedsLayout();
}

// ---------------------------------------------------------------- constraints

void View::addConstraint(const ConstraintPtr& constraint) {
    if (!constraint) return;
    auto first = constraint->firstItem();
    auto second = constraint->secondItem();
    if (!first || (constraint->secondAttribute() && !second))
        throw std::logic_error("addConstraint: an item's view is gone");
    if (!first->isDescendantOfView(*this) || (second && !second->isDescendantOfView(*this)))
        throw std::logic_error("addConstraint: the view is not a common ancestor of the items");
    if (constraint->installedOn().get() == this) return;
    constraint->setActive(false);
    installConstraint(constraint);
}

void View::addConstraints(const std::vector<ConstraintPtr>& constraints) {
    for (const auto& c : constraints) addConstraint(c);
}

void View::removeConstraint(const ConstraintPtr& constraint) {
    if (constraint && constraint->installedOn().get() == this) uninstallConstraint(constraint.get());
}

void View::removeConstraints(const std::vector<ConstraintPtr>& constraints) {
    for (const auto& c : constraints) removeConstraint(c);
}

void View::installConstraint(const ConstraintPtr& c) {
    constraints_.push_back(c);
    c->installedOn_ = weak_from_this();
    setNeedsLayout();
}

void View::uninstallConstraint(const LayoutConstraint* c) {
    auto it = std::find_if(constraints_.begin(), constraints_.end(),
                           [c](const ConstraintPtr& p) { return p.get() == c; });
    if (it == constraints_.end()) return;
    ConstraintPtr keep = *it;  // the caller may hold only a raw pointer
    constraints_.erase(it);
    keep->installedOn_.reset();
    setNeedsLayout();
}

// ---------------------------------------------------------------- layout

namespace {
View* rootOf(const View* v) {
    View* r = const_cast<View*>(v);
    while (auto parent = r->superview()) r = parent.get();
    return r;
}
}  // namespace

void View::layoutSubviews() {
    View* r = rootOf(this);
    LayoutSolver::solve(*r);
    r->needsLayout_ = false;
}

void View::setNeedsLayout() { rootOf(this)->needsLayout_ = true; }

bool View::needsLayout() const { return rootOf(this)->needsLayout_; }

void View::layoutIfNeeded() {
    if (needsLayout()) layoutSubviews();
}

// ---------------------------------------------------------------- touches

bool View::pointInside(Point p) const {
    return p.x >= 0 && p.y >= 0 && p.x < frame_.size.width && p.y < frame_.size.height;
}

ViewPtr View::hitView(Point p) {
    if (hidden_ || alpha_ < 0.01 || !userInteractionEnabled_ || !pointInside(p)) return nullptr;
    for (auto it = subviews_.rbegin(); it != subviews_.rend(); ++it) {
        const Rect f = (*it)->frame();
        if (auto hit = (*it)->hitView({p.x - f.origin.x, p.y - f.origin.y})) return hit;
    }
    return shared_from_this();
}

ViewPtr View::findViewWithAccessibilityLabel(std::string_view label) {
    if (hidden_) return nullptr;
    for (auto it = subviews_.rbegin(); it != subviews_.rend(); ++it)
        if (auto found = (*it)->findViewWithAccessibilityLabel(label)) return found;
    return accessibilityLabel_ == label ? shared_from_this() : nullptr;
}

void View::touchBegan(const Touch&, const TouchEvent&) {}
void View::touchMoved(const Touch&, const TouchEvent&) {}
void View::touchEnded(const Touch&, const TouchEvent&) {}
void View::touchCancelled(const Touch&, const TouchEvent&) {}

Point Touch::locationInView(const View* inView) const {
    return inView ? inView->convertPointFromRoot(locationInWindow) : locationInWindow;
}

std::vector<Touch> TouchEvent::touchesForView(const View& view) const {
    std::vector<Touch> out;
    for (const auto& t : touches_)
        if (t.view.lock().get() == &view) out.push_back(t);
    return out;
}

const Touch* TouchEvent::anyTouchForView(const View& view) const {
    for (const auto& t : touches_)
        if (t.view.lock().get() == &view) return &t;
    return nullptr;
}

Point locationInView(const Touch* touch, const View& view) {
    return touch ? touch->locationInView(&view) : Point{};
}

// ---------------------------------------------------------------- drawing

void View::draw(Painter& painter, const Rect& rect, double alpha) const {
    if (backgroundColor_.alpha <= 0) return;
    Color c = backgroundColor_;
    c.alpha *= alpha;
    painter.fillRect(rect, c);
}

namespace {
bool finite(const Rect& r) {
    return std::isfinite(r.origin.x) && std::isfinite(r.origin.y) &&
           std::isfinite(r.size.width) && std::isfinite(r.size.height);
}

void drawSubtree(const View& v, Point origin, double parentAlpha, Painter& painter) {
    if (v.isHidden()) return;
    const double alpha = parentAlpha * v.alpha();
    if (alpha <= 0) return;
    const Rect rect{origin, v.frame().size};
    if (!finite(rect)) return;
    v.draw(painter, rect, alpha);
    for (const auto& sub : v.subviews()) {
        const Point o{origin.x + sub->frame().origin.x, origin.y + sub->frame().origin.y};
        drawSubtree(*sub, o, alpha, painter);
    }
}
}  // namespace

void drawViewTree(const View& root, Painter& painter) { drawSubtree(root, {0, 0}, 1.0, painter); }

}  // namespace quov::platform
