#include "Kit/UITableView.h"

#include <algorithm>
#include <stdexcept>

namespace tarvik {

namespace {

// The space a grouped table leaves above each section and below the last one.
constexpr double kGroupedSectionGap = 35;
constexpr double kGroupedBottom = 17.5;

}  // namespace

UITableView::UITableView(Rect frame, UITableViewStyle style) : UIScrollView(frame), style_(style) {
    setBackgroundColor(style == UITableViewStyleGrouped
                           ? Color::colorWithRed(239 / 255.0, 239 / 255.0, 244 / 255.0, 1)
                           : Color::colorWithRed(1, 1, 1, 1));
}

void UITableView::setDataSource(std::weak_ptr<UITableViewDataSource> dataSource) {
    dataSource_ = std::move(dataSource);
    sections_.reset();
    setNeedsLayout();
}

void UITableView::setDelegate(std::weak_ptr<UITableViewDelegate> delegate) {
    delegate_ = std::move(delegate);
    sections_.reset();
    setNeedsLayout();
}

void UITableView::setRowHeight(double height) {
    rowHeight_ = height;
    sections_.reset();
    setNeedsLayout();
}

void UITableView::setSeparatorStyle(UITableViewCellSeparatorStyle style) {
    separatorStyle_ = style;
    setNeedsLayout();
}

void UITableView::registerClass(UITableViewCellFactory factory, const std::string& identifier) {
    factories_[identifier] = std::move(factory);
}

std::shared_ptr<UITableViewCell> UITableView::dequeueReusableCellWithIdentifier(
    const std::string& identifier, const NSIndexPath& indexPath) {
    std::shared_ptr<UITableViewCell> cell;
    std::vector<std::shared_ptr<UITableViewCell>>& pool = reusePool_[identifier];
    if (!pool.empty()) {
        cell = pool.back();
        pool.pop_back();
        cell->prepareForReuse();
    } else {
        auto factory = factories_.find(identifier);
        if (factory == factories_.end()) {
            throw std::invalid_argument("unable to dequeue a cell with identifier " + identifier +
                                        " - must register a class for the identifier");
        }
        cell = factory->second(identifier);
    }
    cell->setFrame(rectForRowAtIndexPath(indexPath));
    return cell;
}

void UITableView::reloadData() {
    for (const auto& [indexPath, cell] : visible_) {
        enqueue(cell);
    }
    visible_.clear();
    sections_.reset();
    setNeedsLayout();
    layoutIfNeeded();
}

long UITableView::numberOfSections() {
    loadRowsIfNeeded();
    return static_cast<long>(sections_->size());
}

long UITableView::numberOfRowsInSection(long section) {
    loadRowsIfNeeded();
    if (section < 0 || section >= numberOfSections()) {
        return 0;
    }
    return static_cast<long>((*sections_)[section].rowTops.size());
}

Rect UITableView::rectForRowAtIndexPath(const NSIndexPath& indexPath) {
    if (indexPath.row < 0 || indexPath.row >= numberOfRowsInSection(indexPath.section)) {
        return {};
    }
    const Section& section = (*sections_)[indexPath.section];
    return {{0, section.rowTops[indexPath.row]},
            {bounds().size.width, section.rowHeights[indexPath.row]}};
}

std::shared_ptr<UITableViewCell> UITableView::cellForRowAtIndexPath(
    const NSIndexPath& indexPath) const {
    auto found = visible_.find(indexPath);
    return found == visible_.end() ? nullptr : found->second;
}

std::vector<std::shared_ptr<UITableViewCell>> UITableView::visibleCells() const {
    std::vector<std::shared_ptr<UITableViewCell>> cells;
    for (const auto& [indexPath, cell] : visible_) {
        cells.push_back(cell);
    }
    return cells;
}

void UITableView::loadRowsIfNeeded() {
    if (sections_) {
        return;
    }
    std::vector<Section> sections;
    double y = 0;
    if (std::shared_ptr<UITableViewDataSource> dataSource = dataSource_.lock()) {
        std::shared_ptr<UITableViewDelegate> delegate = delegate_.lock();
        bool grouped = style_ == UITableViewStyleGrouped;
        long count = dataSource->numberOfSections(*this);
        for (long s = 0; s < count; ++s) {
            y += grouped ? kGroupedSectionGap : 0;
            Section& section = sections.emplace_back();
            long rows = dataSource->numberOfRowsInSection(*this, s);
            for (long row = 0; row < rows; ++row) {
                NSIndexPath indexPath{s, row};
                double height =
                    delegate
                        ? delegate->heightForRowAtIndexPath(*this, indexPath).value_or(rowHeight_)
                        : rowHeight_;
                section.rowTops.push_back(y);
                section.rowHeights.push_back(height);
                y += height;
            }
        }
        y += grouped && count > 0 ? kGroupedBottom : 0;
    }
    sections_ = std::move(sections);
    setContentSize({bounds().size.width, y});
}

void UITableView::enqueue(const std::shared_ptr<UITableViewCell>& cell) {
    cell->removeFromSuperview();
    if (!cell->reuseIdentifier().empty()) {
        reusePool_[cell->reuseIdentifier()].push_back(cell);
    }
}

void UITableView::layoutSubviews() {
    loadRowsIfNeeded();
    std::shared_ptr<UITableViewDataSource> dataSource = dataSource_.lock();
    Rect shown = bounds();
    auto showsRow = [&](const NSIndexPath& indexPath) {
        Rect row = rectForRowAtIndexPath(indexPath);
        return row.origin.y < shown.origin.y + shown.size.height &&
               row.origin.y + row.size.height > shown.origin.y;
    };
    // Cells that left the view go back to the pool first, so that new rows can reuse them.
    for (auto it = visible_.begin(); it != visible_.end();) {
        if (dataSource && showsRow(it->first)) {
            ++it;
        } else {
            enqueue(it->second);
            it = visible_.erase(it);
        }
    }
    if (!dataSource) {
        return;
    }
    for (long s = 0; s < static_cast<long>(sections_->size()); ++s) {
        for (long row = 0; row < numberOfRowsInSection(s); ++row) {
            NSIndexPath indexPath{s, row};
            if (visible_.contains(indexPath) || !showsRow(indexPath)) {
                continue;
            }
            if (std::shared_ptr<UITableViewCell> cell =
                    dataSource->cellForRowAtIndexPath(*this, indexPath)) {
                visible_[indexPath] = cell;
                addSubview(cell);
            }
        }
    }
    for (const auto& [indexPath, cell] : visible_) {
        cell->setFrame(rectForRowAtIndexPath(indexPath));
        bool closesSection = style_ == UITableViewStyleGrouped &&
                             indexPath.row == numberOfRowsInSection(indexPath.section) - 1;
        cell->setShowsSeparator(separatorStyle_ != UITableViewCellSeparatorStyleNone,
                                closesSection);
    }
}

}  // namespace tarvik
