// The small operations that every run repeats thousands of times.

#include "installer/copy.h"
#include "installer/ini.h"
#include "installer/lib.h"
#include "installer/log.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace installer {
namespace {

template <auto free_object>
struct freed_by {
    template <class T>
    void operator()(T *object) const {
        free_object(&object);
    }
};

using store = std::unique_ptr<ini, freed_by<ini_free>>;

std::string name_of(int i) {
    char name[32];
    std::snprintf(name, sizeof name, "setting_%04d", i);
    return name;
}

store make_store(std::int64_t settings) {
    store made(ini_init());
    const setting_list none[] = {{nullptr, nullptr, Ini_None}};
    ini_setup(made.get(), none, nullptr, 0);
    for (int i = 0; i < settings; ++i)
        ini_add_name(made.get(), name_of(i).c_str(), "/srv/www/htdocs/board");
    return made;
}

/// A line as the modules write it, flushed at once.
void log_line_flushed(benchmark::State &state) {
    log *x = log_init(LogDebug);
    log_open(x, "/dev/null");
    log_doflush(x, 1);
    for (auto _ : state)
        dmsg("Directory created '%s'", "/srv/www/htdocs/board/help");
    log_set(nullptr);
    log_free(&x);
}
BENCHMARK(log_line_flushed);

/// The last of the names, the one that is found last.
void name_lookup(benchmark::State &state) {
    const store settings = make_store(state.range(0));
    const std::string last = name_of(static_cast<int>(state.range(0)) - 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(ini_value_name(settings.get(), last.c_str()));
}
BENCHMARK(name_lookup)->Arg(50)->Arg(500)->Arg(5000);

void name_lookup_of_none(benchmark::State &state) {
    const store settings = make_store(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(ini_value_name(settings.get(), "setting_none"));
}
BENCHMARK(name_lookup_of_none)->Arg(50)->Arg(5000);

/// A path of a script line with two references.
void reference_expansion(benchmark::State &state) {
    const store settings = make_store(state.range(0));
    char result[text_size];
    for (auto _ : state) {
        ini_replace(settings.get(), "$(setting_0007)/cgi-bin/$(setting_0042)/post.cgi", result, text_size);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(reference_expansion)->Arg(50)->Arg(5000);

void script_path_expansion(benchmark::State &state) {
    const store settings = make_store(state.range(0));
    const std::unique_ptr<copy, freed_by<copy_free>> script(copy_init(settings.get()));
    for (auto _ : state) {
        const text_ptr path(replace_vars(script.get(), "$(setting_0007)/cgi-bin/$(setting_0042)/post.cgi"));
        benchmark::DoNotOptimize(path.get());
    }
}
BENCHMARK(script_path_expansion)->Arg(50);

void wildcard(benchmark::State &state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(wild_match("page-0042.html", "page-*.html"));
}
BENCHMARK(wildcard);

/// A name against an exclusion list that leaves it in.
void exclusion_list(benchmark::State &state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(wild_list("page-0042.html", "*.bak,*.tmp,*.orig,*.old,*~"));
}
BENCHMARK(exclusion_list);

} // namespace
} // namespace installer
