// OpenMetrics text, as collectors of text files read it.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tool {

using Labels = std::vector<std::pair<std::string, std::string>>;

class Metrics {
  public:
    // A family of samples; `type` is gauge or info. Each family once.
    void family(const std::string &name, const std::string &type, const std::string &help,
                const std::string &unit = "");
    // Of the last family. An info's sample has the value 1 and the ending _info.
    void sample(const Labels &labels, double value);
    void info(const Labels &labels);

    [[nodiscard]] std::string text() const { return text_ + "# EOF\n"; }

  private:
    void line(const std::string &name, const Labels &labels, const std::string &value);

    std::string name_;
    std::string text_;
};

} // namespace tool
