#include <orv/logging/Logger.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <mutex>

#include <spdlog/sinks/stdout_sinks.h>

namespace orv::logging {
namespace {

constexpr const char* g_pattern = "%Y-%m-%d %H:%M:%S.%e [%n] [%l] %s:%# %!: %v";

spdlog::level::level_enum initialLevel()
{
    const char* fromEnvironment = std::getenv("ORV_LOG_LEVEL");
    if (fromEnvironment != nullptr) {
        if (auto level = levelFromName(fromEnvironment)) {
            return *level;
        }
    }
    return spdlog::level::info;
}

struct Registry {
    std::mutex mutex;
    std::shared_ptr<spdlog::sinks::dist_sink_mt> sink;
    spdlog::level::level_enum level = initialLevel();

    Registry()
        : sink(std::make_shared<spdlog::sinks::dist_sink_mt>())
    {
        sink->add_sink(std::make_shared<spdlog::sinks::stderr_sink_mt>());
        sink->set_pattern(g_pattern);
    }
};

Registry& registry()
{
    static Registry instance;
    return instance;
}

} // namespace

std::shared_ptr<spdlog::logger> getLogger(const std::string& name)
{
    Registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    if (auto existing = spdlog::get(name)) {
        return existing;
    }
    auto logger = std::make_shared<spdlog::logger>(name, reg.sink);
    logger->set_level(reg.level);
    logger->flush_on(spdlog::level::err);
    spdlog::register_logger(logger);
    return logger;
}

std::shared_ptr<spdlog::sinks::dist_sink_mt> sinks()
{
    return registry().sink;
}

void setLevel(spdlog::level::level_enum level)
{
    Registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    reg.level = level;
    spdlog::apply_all([level](const std::shared_ptr<spdlog::logger>& logger) { logger->set_level(level); });
}

std::optional<spdlog::level::level_enum> levelFromName(const std::string& name)
{
    std::string lowered = name;
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto level = spdlog::level::from_str(lowered);
    // from_str answers "off" for every text it does not know.
    if (level == spdlog::level::off && lowered != "off") {
        return std::nullopt;
    }
    return level;
}

} // namespace orv::logging
