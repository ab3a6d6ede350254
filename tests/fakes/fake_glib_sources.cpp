#include "fakes/fake_glib_sources.h"

#include "fakes/call_record.h"

#include <algorithm>
#include <iterator>

namespace tovrel::test {

FakeGlibSources &FakeGlibSources::instance()
{
    static FakeGlibSources fake;
    return fake;
}

void FakeGlibSources::reset()
{
    const guint id = nextId;
    *this = FakeGlibSources();
    nextId = id;
}

guint FakeGlibSources::add(const std::string &kind, guint value, GSourceFunc function,
                           gpointer data)
{
    sources.push_back({nextId, kind, value, function, data});
    return nextId++;
}

std::vector<FakeGlibSources::Source> FakeGlibSources::attached(const std::string &kind) const
{
    std::vector<Source> result;
    std::copy_if(sources.begin(), sources.end(), std::back_inserter(result),
                 [&kind](const Source &source) { return source.attached && source.kind == kind; });
    return result;
}

gboolean FakeGlibSources::dispatch(guint id)
{
    const auto find = [this, id] {
        return std::find_if(sources.begin(), sources.end(),
                            [id](const Source &source) { return source.id == id; });
    };
    const Source source = *find();
    const gboolean stays = source.function(source.data);
    find()->attached = stays == G_SOURCE_CONTINUE; // the function may have added sources
    return stays;
}

} // namespace tovrel::test

using tovrel::test::FakeGlibSources;
using tovrel::test::recordCall;

// The linker's own names for what takes a wrapped function's place.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {

guint __wrap_g_timeout_add_seconds(guint seconds, GSourceFunc function, gpointer data);
guint __wrap_g_idle_add(GSourceFunc function, gpointer data);
guint __wrap_g_unix_signal_add(gint number, GSourceFunc function, gpointer data);
gboolean __wrap_g_source_remove(guint id);
GSource *__wrap_g_main_context_find_source_by_id(GMainContext *context, guint id);
void __wrap_g_main_loop_run(GMainLoop *loop);
void __wrap_g_main_loop_quit(GMainLoop *loop);

guint __wrap_g_timeout_add_seconds(guint seconds, GSourceFunc function, gpointer data)
{
    recordCall("g_timeout_add_seconds " + std::to_string(seconds));
    return FakeGlibSources::instance().add("timeout", seconds, function, data);
}

guint __wrap_g_idle_add(GSourceFunc function, gpointer data)
{
    recordCall("g_idle_add");
    return FakeGlibSources::instance().add("idle", 0, function, data);
}

guint __wrap_g_unix_signal_add(gint number, GSourceFunc function, gpointer data)
{
    recordCall("g_unix_signal_add " + std::to_string(number));
    return FakeGlibSources::instance().add("signal", static_cast<guint>(number), function, data);
}

gboolean __wrap_g_source_remove(guint id)
{
    auto &fake = FakeGlibSources::instance();
    recordCall("g_source_remove");
    if (fake.removalFails) {
        return FALSE;
    }
    for (auto &source : fake.sources) {
        if (source.id == id && source.attached) {
            source.attached = false;
            return TRUE;
        }
    }
    return FALSE;
}

GSource *__wrap_g_main_context_find_source_by_id(GMainContext * /*context*/, guint id)
{
    static GSource something;
    const auto &sources = FakeGlibSources::instance().sources;
    const bool isThere = std::any_of(sources.begin(), sources.end(), [id](const auto &source) {
        return source.id == id && source.attached;
    });
    // Nothing but whether there is one can be told of it.
    return isThere ? &something : nullptr;
}

void __wrap_g_main_loop_run(GMainLoop *loop)
{
    auto &fake = FakeGlibSources::instance();
    recordCall("g_main_loop_run");
    fake.runLoops.push_back(loop);
    if (fake.whileRunning) {
        fake.whileRunning();
    }
}

void __wrap_g_main_loop_quit(GMainLoop *loop)
{
    recordCall("g_main_loop_quit");
    FakeGlibSources::instance().quitLoops.push_back(loop);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
