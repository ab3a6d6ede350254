#include "event/daemon/match_table.h"

#include "event/core/event_content.h"
#include "event/core/value.h"

#include <algorithm>
#include <functional>

namespace norq::event {
namespace {

enum class Verdict { NEVER, ALWAYS, OPEN };

Verdict judgeValue(const DeclaredKey &key, const Condition &condition, OpenCondition &open)
{
    if (key.fixed) {
        return key.fixed->text() == condition.text ? Verdict::ALWAYS : Verdict::NEVER;
    }
    const auto wanted = Value::parse(key.type, condition.text);
    if (!wanted) {
        return Verdict::NEVER; // no value of this type reads like that
    }
    open = {key.openPosition, bytesOf(*wanted)};
    return Verdict::OPEN;
}

Verdict judge(const Declaration &declaration, const Condition &condition, OpenCondition &open)
{
    const auto index = declaration.find(condition.key);
    if (!index || condition.kind == Condition::Kind::ABSENT) {
        const bool holds = !index && condition.kind == Condition::Kind::ABSENT;
        return holds ? Verdict::ALWAYS : Verdict::NEVER;
    }
    const DeclaredKey &key = declaration.keys()[*index];
    if (condition.kind == Condition::Kind::NAME_SPACE) {
        return key.nameSpace == condition.text ? Verdict::ALWAYS : Verdict::NEVER;
    }
    return judgeValue(key, condition, open);
}

} // namespace

std::optional<std::vector<OpenCondition>> reduce(const Expression &expression,
                                                 const Declaration &declaration)
{
    std::vector<OpenCondition> left;
    for (const Condition &condition : expression.conditions()) {
        OpenCondition open{};
        switch (judge(declaration, condition, open)) {
        case Verdict::NEVER:
            return std::nullopt;
        case Verdict::ALWAYS:
            break;
        case Verdict::OPEN:
            left.push_back(std::move(open));
            break;
        }
    }
    return left;
}

void MatchTable::add(Subscription &subscription, const Expression &expression,
                     const Declaration &declaration)
{
    auto conditions = reduce(expression, declaration);
    if (!conditions) {
        return;
    }
    ++count;
    if (conditions->empty()) {
        always.push_back(&subscription);
        return;
    }
    OpenCondition first = std::move(conditions->back());
    conditions->pop_back();
    candidatesAt(first.position)[std::move(first.bytes)].push_back(
        {&subscription, std::move(*conditions)});
}

void MatchTable::clear()
{
    always.clear();
    byValue.clear();
    count = 0;
}

MatchTable::Candidates &MatchTable::candidatesAt(std::uint32_t position)
{
    const auto found = std::find_if(byValue.begin(), byValue.end(),
                                    [&](const auto &entry) { return entry.first == position; });
    if (found != byValue.end()) {
        return found->second;
    }
    return byValue.emplace_back(position, Candidates()).second;
}

bool MatchTable::Candidate::matches(const std::vector<std::string_view> &values) const
{
    return std::all_of(conditions.begin(), conditions.end(), [&](const OpenCondition &condition) {
        return values[condition.position] == condition.bytes;
    });
}

} // namespace norq::event
