#include "fakes/fake_event_base.h"

void event_free(event_t *event)
{
    delete event;
}
