#include "unit/events/broken_retain_policy.h"

namespace tovrel::test {

/** Access to a member that nothing but a fault could give a wrong value. */
template <RetainPolicy EventFilterConfig::*Member>
struct RetainPolicyMember {
    friend void setRetainPolicyMember(EventFilterConfig &filter, RetainPolicy value)
    {
        filter.*Member = value;
    }
};
void setRetainPolicyMember(EventFilterConfig &filter, RetainPolicy value);
template struct RetainPolicyMember<&EventFilterConfig::retainPolicy>;

void breakRetainPolicy(EventFilterConfig &filter, RetainPolicy value)
{
    setRetainPolicyMember(filter, value);
}

} // namespace tovrel::test
