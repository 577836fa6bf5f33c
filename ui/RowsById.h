#pragma once

#include <string>
#include <unordered_map>
#include <vector>

namespace harkline::ui {

// Lines `rows` up with `items` by id, in the items' order, so a reload keeps the widgets the user
// is looking at: `place(item, row)` gets the row that showed the same id before, or nullptr for a
// new id, and returns the row to use. Rows that no item claims are deleted. A repeated id simply
// claims one more row.
template <class Row, class Item, class RowId, class Place>
void reuseRowsById(std::vector<Row*>& rows, const std::vector<Item>& items, RowId rowId,
                   Place place)
{
    std::unordered_multimap<std::string, Row*> spare;
    spare.reserve(rows.size());
    for (Row* r : rows)
        spare.emplace(rowId(r), r);
    std::vector<Row*> placed;
    placed.reserve(items.size());
    for (const Item& item : items) {
        Row* r = nullptr;
        if (auto it = spare.find(item.id); it != spare.end()) {
            r = it->second;
            spare.erase(it);
        }
        placed.push_back(place(item, r));
    }
    for (auto& entry : spare)
        delete entry.second;
    rows = std::move(placed);
}

} // namespace harkline::ui
