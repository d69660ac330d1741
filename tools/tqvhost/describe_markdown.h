// The registered vocabulary as Markdown (`tqvhost describe --markdown`).
#ifndef TQVHOST_TOOL_DESCRIBE_MARKDOWN_H
#define TQVHOST_TOOL_DESCRIBE_MARKDOWN_H

#include <string>
#include <vector>

namespace tqvhost::markdown {

// Renders the tab-separated `describe` lines (registration order) under a title naming the plugin.
std::string render(const std::vector<std::string>& describeLines, const std::string& pluginName);

}  // namespace tqvhost::markdown

#endif  // TQVHOST_TOOL_DESCRIBE_MARKDOWN_H
