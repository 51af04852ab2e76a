// SPDX-License-Identifier: Apache-2.0
// Writes the plug-in's description, in Turtle, into its bundle: from the engine's table of voices.
//
// usage: krel_lv2_describe BUNDLE_FOLDER BINARY MAJOR MINOR PATCH
#include <stdlib.h>

#include <fstream>
#include <iostream>
#include <string>

#include "engine/voice.h"
#include "lv2/ports.h"

namespace {

using krel::kPluginUri;

constexpr char kPrefixes[] = R"(@prefix doap: <http://usefulinc.com/ns/doap#> .
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix pprops: <http://lv2plug.in/ns/ext/port-props#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .
@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .
@prefix units: <http://lv2plug.in/ns/extensions/units#> .
@prefix work: <http://lv2plug.in/ns/ext/worker#> .

)";

long number(const char* digits) { return strtol(digits, nullptr, 10); }

std::string literal(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + '"';
}

/// The voice's name; where an earlier voice has it too, with the number.
std::string label(int number) {
    const std::string name = krel_voice_name(number);
    for (int other = 0; other < number; ++other) {
        if (name == krel_voice_name(other)) return literal(name + ' ' + std::to_string(number));
    }
    return literal(name);
}

std::string preset(int number) {
    return '<' + std::string(kPluginUri) + "#preset-" + std::to_string(number) + '>';
}

void write_manifest(std::ostream& out, const std::string& binary) {
    out << '<' << kPluginUri << ">\n\ta lv2:Plugin ;\n\tlv2:binary <" << binary
        << "> ;\n\trdfs:seeAlso <krelvoice.ttl> .\n";
    for (int n = 0; n < krel_voice_count(); ++n) {
        out << '\n'
            << preset(n) << "\n\ta pset:Preset ;\n\tlv2:appliesTo <" << kPluginUri
            << "> ;\n\trdfs:label " << label(n) << " ;\n\trdfs:seeAlso <presets.ttl> .\n";
    }
}

void write_presets(std::ostream& out) {
    for (int n = 0; n < krel_voice_count(); ++n) {
        out << preset(n) << "\n\ta pset:Preset ;\n\tlv2:appliesTo <" << kPluginUri
            << "> ;\n\trdfs:label " << label(n) << " ;\n\trdfs:comment "
            << literal(krel_voice_description(n))
            << " ;\n\tlv2:port [\n\t\tlv2:symbol \"voice\" ;\n\t\tpset:value " << n
            << ".0\n\t] .\n\n";
    }
}

/// A port's lines up to those of its own.
void begin_port(std::ostream& out, krel::Port port, const char* classes, const char* symbol,
                const char* name) {
    out << (port == krel::kIn ? "\tlv2:port [\n" : "\t] , [\n") << "\t\ta " << classes
        << " ;\n\t\tlv2:index " << port << " ;\n\t\tlv2:symbol \"" << symbol
        << "\" ;\n\t\tlv2:name \"" << name << "\"";
}

void write_range(std::ostream& out, int least, int most) {
    out << " ;\n\t\tlv2:minimum " << least << " ;\n\t\tlv2:maximum " << most;
}

void write_voice_port(std::ostream& out) {
    begin_port(out, krel::kVoice, "lv2:InputPort , lv2:ControlPort", "voice", "Voice");
    write_range(out, 0, krel_voice_count() - 1);
    out << " ;\n\t\tlv2:default " << krel::kDefaultVoice
        << " ;\n\t\tlv2:portProperty lv2:integer , lv2:enumeration";
    for (int n = 0; n < krel_voice_count(); ++n) {
        out << " ;\n\t\tlv2:scalePoint [ rdfs:label " << label(n) << " ; rdf:value " << n << " ]";
    }
    out << '\n';
}

void write_toggle(std::ostream& out, krel::Port port, const char* symbol, const char* name,
                  const char* designation) {
    begin_port(out, port, "lv2:InputPort , lv2:ControlPort", symbol, name);
    write_range(out, 0, 1);
    out << " ;\n\t\tlv2:default " << (port == krel::kEnabled ? 1 : 0) << " ;\n\t\tlv2:designation "
        << designation << " ;\n\t\tlv2:portProperty lv2:toggled"
        << (port == krel::kEnabled ? "" : " , pprops:notOnGUI") << '\n';
}

void write_latency_port(std::ostream& out) {
    int most = 0;
    for (int n = 0; n < krel_voice_count(); ++n)
        most = std::max(most, krel_voice_latency(n, 192000));
    begin_port(out, krel::kLatency, "lv2:OutputPort , lv2:ControlPort", "latency", "Latency");
    write_range(out, 0, most);
    out << " ;\n\t\tlv2:designation lv2:latency ;\n\t\tlv2:portProperty lv2:reportsLatency , "
           "lv2:integer ;\n\t\tunits:unit units:frame\n";
}

void write_plugin(std::ostream& out, char** version) {
    out << '<' << kPluginUri << ">\n\ta lv2:Plugin , lv2:PitchPlugin ;\n"
        << "\tdoap:name \"Krel Voice\" ;\n"
        << "\tdoap:shortdesc "
        << literal("A changed voice, one of " + std::to_string(krel_voice_count()) +
                   ", for speech and song.")
        << " ;\n\tdoap:license <http://usefulinc.com/doap/licenses/asl20> ;\n"
        // LV2 has a minor and a micro version, and wants them to grow: the first number counts with
        // the second.
        << "\tlv2:minorVersion " << number(version[0]) * 100 + number(version[1])
        << " ;\n\tlv2:microVersion " << version[2]
        << " ;\n\tlv2:optionalFeature lv2:hardRTCapable , work:schedule ;\n"
        << "\tlv2:extensionData work:interface ;\n";
    begin_port(out, krel::kIn, "lv2:InputPort , lv2:AudioPort", "in", "In");
    out << '\n';
    begin_port(out, krel::kOut, "lv2:OutputPort , lv2:AudioPort", "out", "Out");
    out << '\n';
    write_voice_port(out);
    write_toggle(out, krel::kEnabled, "enabled", "Enabled", "lv2:enabled");
    write_latency_port(out);
    write_toggle(out, krel::kFreeWheeling, "freewheeling", "Freewheeling", "lv2:freeWheeling");
    out << "\t] .\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::cerr << "usage: krel_lv2_describe BUNDLE_FOLDER BINARY MAJOR MINOR PATCH\n";
        return 2;
    }
    const std::string folder = std::string(argv[1]) + '/';
    std::ofstream manifest(folder + "manifest.ttl");
    std::ofstream plugin(folder + "krelvoice.ttl");
    std::ofstream presets(folder + "presets.ttl");
    for (auto* file : {&manifest, &plugin, &presets}) *file << kPrefixes;
    write_manifest(manifest, argv[2]);
    write_plugin(plugin, argv + 3);
    write_presets(presets);
    for (auto* file : {&manifest, &plugin, &presets}) {
        file->close();
        if (file->fail()) {
            std::cerr << "krel_lv2_describe: cannot write into " << folder << '\n';
            return 1;
        }
    }
    return 0;
}
