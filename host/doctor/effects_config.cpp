// SPDX-License-Identifier: Apache-2.0
#include "host/doctor/effects_config.h"

#include <tinyxml2.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>

#include "host/error.h"

namespace krel::host::doctor {
namespace {

using tinyxml2::XMLElement;

constexpr int kDeepest = 8;

std::string attribute(const XMLElement& element, const char* name) {
    const char* value = element.Attribute(name);
    return value == nullptr ? "" : value;
}

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

/// Calls visit(element) for each child element of each section of that name.
template <typename Visit>
void for_children(const XMLElement& root, const char* section, Visit visit) {
    for (auto* s = root.FirstChildElement(section); s != nullptr;
         s = s->NextSiblingElement(section)) {
        for (auto* e = s->FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) visit(*e);
    }
}

void add_attachments(const XMLElement& root, const char* section, EffectsConfig& config) {
    for_children(root, section, [&](const XMLElement& target) {
        for (auto* e = target.FirstChildElement("apply"); e != nullptr;
             e = e->NextSiblingElement("apply")) {
            config.attachments.push_back(
                    {section, attribute(target, "type"), attribute(*e, "effect")});
        }
    });
}

/// A node of the older format: a name, then a value to the end of the line or a block of nodes in
/// braces.
struct Node {
    std::string name;
    std::string value;
    std::vector<Node> children;

    const Node* child(const std::string& wanted) const {
        const auto found = std::ranges::find(children, wanted, &Node::name);
        return found == children.end() ? nullptr : &*found;
    }
    std::string value_of(const std::string& wanted) const {
        const Node* node = child(wanted);
        return node == nullptr ? "" : node->value;
    }
    const std::vector<Node>& children_of(const std::string& wanted) const {
        static const std::vector<Node> none;
        const Node* node = child(wanted);
        return node == nullptr ? none : node->children;
    }
};

/// Words and braces; the rest of a line behind a # is a comment.
std::vector<std::string> read_words(std::istream& stream) {
    std::vector<std::string> all;
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        all.insert(all.end(), std::istream_iterator<std::string>(words), {});
    }
    return all;
}

using Word = std::vector<std::string>::const_iterator;

/// Reads nodes up to a closing brace, or to the end. kDeepest bounds the recursion.
// NOLINTNEXTLINE(misc-no-recursion)
std::vector<Node> read_nodes(Word& word, Word end, int depth) {
    std::vector<Node> nodes;
    for (; word != end && *word != "}"; ++word) {
        Node node = {.name = *word, .value = {}, .children = {}};
        if (++word == end || *word == "}") throw Error("'" + node.name + "' has no value");
        if (*word != "{") {
            node.value = *word;
        } else {
            if (depth == kDeepest) throw Error("too many open braces");
            node.children = read_nodes(++word, end, depth + 1);
            if (word == end) throw Error("a closing brace is missing");
        }
        nodes.push_back(std::move(node));
    }
    return nodes;
}

void add_attachments(const Node& root, const char* section, EffectsConfig& config) {
    for (const Node& target : root.children_of(section)) {
        for (const Node& effect : target.children) {
            config.attachments.push_back({section, target.name, effect.name});
        }
    }
}

}  // namespace

EffectsConfig read_effects_xml(const std::filesystem::path& path) {
    tinyxml2::XMLDocument document;
    if (document.LoadFile(path.c_str()) != tinyxml2::XML_SUCCESS) throw Error(document.ErrorStr());
    const XMLElement* root = document.FirstChildElement("audio_effects_conf");
    if (root == nullptr) throw Error("its root element is not audio_effects_conf");

    EffectsConfig config;
    for_children(*root, "libraries", [&](const XMLElement& e) {
        config.libraries.push_back({attribute(e, "name"), attribute(e, "path")});
    });
    for_children(*root, "effects", [&](const XMLElement& e) {
        config.effects.push_back(
                {attribute(e, "name"), attribute(e, "library"), lower(attribute(e, "uuid"))});
    });
    for (const char* section : {"postprocess", "preprocess", "deviceEffects"}) {
        add_attachments(*root, section, config);
    }
    return config;
}

EffectsConfig read_effects_conf(const std::filesystem::path& path) {
    std::ifstream stream(path);
    const std::vector<std::string> words = read_words(stream);
    Word word = words.begin();
    const Node root = {.name = {}, .value = {}, .children = read_nodes(word, words.end(), 0)};
    if (word != words.end()) throw Error("a brace too many");
    EffectsConfig config;
    for (const Node& library : root.children_of("libraries")) {
        config.libraries.push_back({library.name, library.value_of("path")});
    }
    for (const Node& effect : root.children_of("effects")) {
        config.effects.push_back(
                {effect.name, effect.value_of("library"), lower(effect.value_of("uuid"))});
    }
    add_attachments(root, "output_session_processing", config);
    add_attachments(root, "pre_processing", config);
    return config;
}

}  // namespace krel::host::doctor
