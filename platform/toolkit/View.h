#pragma once

#include <quov/Geometry.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quov::platform {

class View;
class LayoutConstraint;
class Painter;
class TouchEvent;
struct Touch;
using ViewPtr = std::shared_ptr<View>;
using ConstraintPtr = std::shared_ptr<LayoutConstraint>;

/// Straight (not premultiplied) colour, each channel 0..1.
struct Color {
    double red = 0, green = 0, blue = 0, alpha = 0;
    static constexpr Color clear() { return {0, 0, 0, 0}; }
    static constexpr Color black() { return {0, 0, 0, 1}; }
    static constexpr Color white() { return {1, 1, 1, 1}; }
    friend bool operator==(const Color&, const Color&) = default;
};

enum class LayoutAttribute { Leading, Trailing, Top, Bottom, CenterX, CenterY, Width, Height };

/// Which anchors may be related: an x position only to an x position, and so on.
enum class AnchorAxis { X, Y, Dimension };

/// One edge, centre or size of a view, the start of a constraint. Holds its view
/// weakly; making a constraint from the anchor of a view that is gone throws
/// std::invalid_argument.
template <AnchorAxis Axis>
class LayoutAnchor {
public:
    LayoutAnchor(std::weak_ptr<View> view, LayoutAttribute attribute)
        : view_(std::move(view)), attribute_(attribute) {}

    /// this == other + constant (multiplier 1). Inactive until setActive(true).
    ConstraintPtr constraintEqualToAnchor(const LayoutAnchor& other, double constant = 0) const;

    /// this == constant, for sizes only.
    ConstraintPtr constraintEqualToConstant(double constant) const
        requires(Axis == AnchorAxis::Dimension);

    std::shared_ptr<View> view() const { return view_.lock(); }
    LayoutAttribute attribute() const { return attribute_; }

private:
    std::weak_ptr<View> view_;
    LayoutAttribute attribute_;
};

using XAxisAnchor = LayoutAnchor<AnchorAxis::X>;
using YAxisAnchor = LayoutAnchor<AnchorAxis::Y>;
using DimensionAnchor = LayoutAnchor<AnchorAxis::Dimension>;

/// An equality between two anchors (or one anchor and a constant), multiplier 1.
/// Items are held weakly: a constraint never keeps a view alive. Main thread only.
class LayoutConstraint : public std::enable_shared_from_this<LayoutConstraint> {
public:
    /// Prefer the anchors' constraintEqualTo... Throws std::invalid_argument when
    /// first is gone, or second is gone while secondAttribute is given.
    LayoutConstraint(const ViewPtr& first, LayoutAttribute firstAttribute, const ViewPtr& second,
                     std::optional<LayoutAttribute> secondAttribute, double constant);

    std::shared_ptr<View> firstItem() const { return first_.lock(); }
    LayoutAttribute firstAttribute() const { return firstAttribute_; }
    /// Null for a constant size.
    std::shared_ptr<View> secondItem() const { return second_.lock(); }
    std::optional<LayoutAttribute> secondAttribute() const { return secondAttribute_; }
    double multiplier() const { return 1.0; }
    double constant() const { return constant_; }
    void setConstant(double constant);

    /// Installed on some view (listed in its constraints()).
    bool isActive() const { return !installedOn_.expired(); }
    std::shared_ptr<View> installedOn() const { return installedOn_.lock(); }

    /// true installs it on the nearest common ancestor of its items (the item
    /// itself for a constant size); false uninstalls it. Throws std::logic_error
    /// when the items are in different view trees or one of them is gone.
    void setActive(bool active);
    static void activateConstraints(const std::vector<ConstraintPtr>& constraints);

private:
    friend class View;
    std::weak_ptr<View> first_;
    std::weak_ptr<View> second_;
    LayoutAttribute firstAttribute_;
    std::optional<LayoutAttribute> secondAttribute_;
    double constant_;
    std::weak_ptr<View> installedOn_;
};

/// A rectangle of the view tree. Always owned by shared_ptr (create with make() or
/// std::make_shared): anchors, touches and constraints refer to views weakly, and a
/// superview owns its subviews. Frames are in points in the superview's space, y
/// down; bounds have origin (0, 0). Everything here belongs on the main thread.
class View : public std::enable_shared_from_this<View> {
public:
    View() = default;
    explicit View(Rect frame) : frame_(frame) {}
    virtual ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    static ViewPtr make(Rect frame = {}) { return std::make_shared<View>(frame); }

    // --- the tree: later subviews lie in front of earlier ones ---
    ViewPtr superview() const { return superview_.lock(); }
    /// A snapshot, back to front: safe to iterate while views come and go.
    std::vector<ViewPtr> subviews() const { return subviews_; }
    /// Moves view to the front of this view's subviews, taking it out of its old
    /// superview first. Throws std::invalid_argument for a null view, this view
    /// itself or one of its ancestors.
    void addSubview(const ViewPtr& view);
    /// Leaves the superview; every constraint installed above that relates a view of
    /// this subtree is uninstalled. The view lives on while someone else holds it.
    void removeFromSuperview();
    bool isDescendantOfView(const View& ancestor) const;  // true for the view itself
    /// The topmost ancestor (this view when it has no superview).
    ViewPtr root();

    // --- geometry, points ---
    Rect frame() const { return frame_; }
    void setFrame(Rect frame);
    Rect bounds() const { return {{0, 0}, frame_.size}; }
    /// Origin of this view in its root's space.
    Point originInRoot() const;
    Point convertPointFromRoot(Point p) const;

    // --- appearance ---
    Color backgroundColor() const { return backgroundColor_; }
    void setBackgroundColor(Color color) { backgroundColor_ = color; }
    /// Opacity of the view and everything in it, clamped to 0..1.
    double alpha() const { return alpha_; }
    void setAlpha(double alpha);
    bool isHidden() const { return hidden_; }
    void setHidden(bool hidden) { hidden_ = hidden; }
    /// A name for UI automation and assistive tools; empty: none.
    const std::string& accessibilityLabel() const { return accessibilityLabel_; }
    void setAccessibilityLabel(std::string label) { accessibilityLabel_ = std::move(label); }
    /// The frontmost visible view of this subtree (this view included) with label.
    ViewPtr findViewWithAccessibilityLabel(std::string_view label);
    bool isUserInteractionEnabled() const { return userInteractionEnabled_; }
    void setUserInteractionEnabled(bool enabled) { userInteractionEnabled_ = enabled; }

    /// On (the default): the frame is fixed and only read by constraints.
    /// Off: the frame is an unknown that layout solves from constraints.
    bool translatesAutoresizingMaskIntoConstraints() const { return translatesAutoresizing_; }
    void setTranslatesAutoresizingMaskIntoConstraints(bool on);

    // --- anchors (leading is the left edge: layout is always left to right) ---
    XAxisAnchor leadingAnchor() { return {weak_from_this(), LayoutAttribute::Leading}; }
    XAxisAnchor trailingAnchor() { return {weak_from_this(), LayoutAttribute::Trailing}; }
    XAxisAnchor centerXAnchor() { return {weak_from_this(), LayoutAttribute::CenterX}; }
    YAxisAnchor topAnchor() { return {weak_from_this(), LayoutAttribute::Top}; }
    YAxisAnchor bottomAnchor() { return {weak_from_this(), LayoutAttribute::Bottom}; }
    YAxisAnchor centerYAnchor() { return {weak_from_this(), LayoutAttribute::CenterY}; }
    DimensionAnchor widthAnchor() { return {weak_from_this(), LayoutAttribute::Width}; }
    DimensionAnchor heightAnchor() { return {weak_from_this(), LayoutAttribute::Height}; }

    // --- constraints installed on this view ---
    /// A snapshot, in installation order.
    std::vector<ConstraintPtr> constraints() const { return constraints_; }
    /// Installs here (uninstalling it elsewhere first). Throws std::logic_error when
    /// an item is gone or is neither this view nor one of its descendants.
    void addConstraint(const ConstraintPtr& constraint);
    void addConstraints(const std::vector<ConstraintPtr>& constraints);
    /// Uninstalls if installed here; anything else is ignored.
    void removeConstraint(const ConstraintPtr& constraint);
    void removeConstraints(const std::vector<ConstraintPtr>& constraints);

    // --- layout ---
    /// Solves every constraint installed in this view's tree (from its root down)
    /// and assigns the frames of the views whose autoresizing flag is off, at once.
    /// Rules: see LayoutSolver.h.
    void layoutSubviews();
    /// Marks the tree for layout; layoutIfNeeded() solves it once.
    void setNeedsLayout();
    bool needsLayout() const;
    void layoutIfNeeded();

    // --- touches ---
    /// The frontmost visible, interactive view under p (in this view's space),
    /// searching subviews front to back before the view itself; null if none.
    virtual ViewPtr hitView(Point p);
    bool pointInside(Point p) const;
    /// Delivered by the window to the view a touch went down on. No-ops here.
    virtual void touchBegan(const Touch& touch, const TouchEvent& event);
    virtual void touchMoved(const Touch& touch, const TouchEvent& event);
    virtual void touchEnded(const Touch& touch, const TouchEvent& event);
    virtual void touchCancelled(const Touch& touch, const TouchEvent& event);

    // --- drawing ---
    /// Draws this view's own content (not its subviews) into rect, which is the
    /// view's frame in root space; alpha is the product of the ancestors' alphas
    /// and this view's. The base draws the background colour.
    virtual void draw(Painter& painter, const Rect& rect, double alpha) const;

private:
    friend class LayoutConstraint;
    friend class LayoutSolver;
    void installConstraint(const ConstraintPtr& c);
    void uninstallConstraint(const LayoutConstraint* c);
    void removeConstraintsReferencingSubtree(const View& subtree);
    void setSolvedFrame(const Rect& frame) { frame_ = frame; }

    std::weak_ptr<View> superview_;
    std::vector<ViewPtr> subviews_;
    std::vector<ConstraintPtr> constraints_;
    Rect frame_;
    Color backgroundColor_ = Color::clear();
    double alpha_ = 1.0;
    bool hidden_ = false;
    bool userInteractionEnabled_ = true;
    bool translatesAutoresizing_ = true;
    std::string accessibilityLabel_;
    bool needsLayout_ = false;  // meaningful on a root
};

template <AnchorAxis Axis>
ConstraintPtr LayoutAnchor<Axis>::constraintEqualToAnchor(const LayoutAnchor& other,
                                                          double constant) const {
    return std::make_shared<LayoutConstraint>(view_.lock(), attribute_, other.view_.lock(),
                                              other.attribute_, constant);
}

template <AnchorAxis Axis>
ConstraintPtr LayoutAnchor<Axis>::constraintEqualToConstant(double constant) const
    requires(Axis == AnchorAxis::Dimension)
{
    return std::make_shared<LayoutConstraint>(view_.lock(), attribute_, nullptr, std::nullopt,
                                              constant);
}

}  // namespace quov::platform
