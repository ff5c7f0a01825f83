// `ossira graph`: the picture of what a scan finds. Modules with their classes stand on the left,
// the categories on the right, in the order in which start-up and clean-up go through them; a line
// leads from a class to where it is filed. The picture is drawn here, so that it is there also
// where Graphviz is not; whoever has Graphviz may prefer the DOT text.
#include "Command.h"
#include "FilePath.h"
#include "Print.h"
#include "Scan.h"
#include "Survey.h"
#include "Templates.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

namespace Tavrik::tHost
{

namespace
{

struct GraphOptions
{
    ScanOptions Scan;
    std::string Format = "dot";
    std::string Output; // empty: standard output
};

std::string Label(const Json& each)
{
    const auto text = each["text"].get<std::string>();
    return text.empty() ? each["id"].get<std::string>() : text;
}

std::string BareName(const Json& file)
{
    const auto name = file["file"].get<std::string>();
    return name.substr(name.find_last_of("/\\") + 1);
}

// Where a class is filed: the category, and the group in it.
std::string Place(const Json& entry)
{
    const auto category = entry["category"].get<std::string>();
    return entry.contains("group") ? category + ", group " + entry["group"].get<std::string>()
                                   : category;
}

// In the order of a process's life; those of nobody's order come last.
std::vector<std::string> Places(const Json& found)
{
    std::map<std::pair<std::size_t, std::string>, std::string> sorted;
    for (const Json& file : found["files"])
    {
        for (const Json& entry : file.value("filed", Json::array()))
            sorted.emplace(
                std::pair(CategoryRank(entry["category"].get<std::string>()), Place(entry)),
                Place(entry));
    }
    std::vector<std::string> places;
    for (const auto& [rank, place] : sorted)
        places.push_back(place);
    return places;
}

std::string Escaped(std::string_view text, const std::map<char, std::string>& escapes)
{
    std::string escaped;
    for (const char c : text)
    {
        const auto escape = escapes.find(c);
        if (escape != escapes.end())
            escaped += escape->second;
        else if (static_cast<unsigned char>(c) >= 0x20)
            escaped += c;
    }
    return escaped;
}

std::string Quoted(std::string_view text)
{
    return '"' + Escaped(text, {{'"', "\\\""}, {'\\', "\\\\"}}) + '"';
}

std::string Xml(std::string_view text)
{
    return Escaped(text, {{'<', "&lt;"}, {'>', "&gt;"}, {'&', "&amp;"}, {'"', "&quot;"}});
}

// --- DOT
// --------------------------------------------------------------------------------------------

std::string MakeDot(const Json& found)
{
    std::ostringstream dot;
    dot << "digraph modules {\n  rankdir=LR;\n  node [shape=box, fontname=\"sans-serif\"];\n";
    std::size_t number = 0;
    for (const Json& file : found["files"])
    {
        dot << "  subgraph cluster_" << number++ << " {\n    label=" << Quoted(BareName(file))
            << ";\n";
        if (file["verdict"] != tVerdict::Module)
            dot << "    color=red;\n";
        const Json classes = file.value("classes", Json::array());
        if (classes.empty()) // a cluster of nothing is not drawn
            dot << "    " << Quoted(file["file"].get<std::string>())
                << " [label=" << Quoted(file["verdict"].get<std::string>())
                << ", shape=plaintext];\n";
        for (const Json& each : classes)
            dot << "    " << Quoted(each["id"].get<std::string>())
                << " [label=" << Quoted(Label(each)) << "];\n";
        dot << "  }\n";
    }
    for (const std::string& place : Places(found))
        dot << "  " << Quoted(place) << " [shape=ellipse];\n";
    for (const Json& file : found["files"])
    {
        for (const Json& entry : file.value("filed", Json::array()))
            dot << "  " << Quoted(entry["class"].get<std::string>()) << " -> "
                << Quoted(Place(entry)) << ";\n";
    }
    dot << "}\n";
    return dot.str();
}

// --- SVG
// --------------------------------------------------------------------------------------------

// Draws downwards in two columns; what is filed remembers where its class stands.
class CDrawing
{
public:
    explicit CDrawing(const Json& found)
    {
        for (const std::string& place : Places(found))
            DrawPlace(place);
        std::size_t index = 0;
        for (const Json& file : found["files"])
            DrawModule(file, index++);
    }

    [[nodiscard]] std::string Text() const
    {
        const int height = std::max(mModuleY, mPlaceY) + Gap;
        std::ostringstream svg;
        svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << Width << "\" height=\""
            << height << "\" viewBox=\"0 0 " << Width << ' ' << height
            << "\" font-family=\"system-ui, sans-serif\" font-size=\"13\">\n"
            << mLines.str() << mBoxes.str() << "</svg>\n";
        return svg.str();
    }

private:
    static constexpr int Gap = 14;
    static constexpr int Row = 24;
    static constexpr int Left = 10;
    static constexpr int BoxWidth = 330;
    static constexpr int Right = 640;
    static constexpr int Width = Right + BoxWidth + Left;

    // What does not fit in a box is cut in the middle of its text, and whole in its title.
    static std::string Fitting(const std::string& text)
    {
        constexpr std::size_t limit = 44;
        if (text.size() <= limit)
            return Xml(text);
        std::size_t end = limit - 1;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
            --end; // not within a character
        return Xml(text.substr(0, end)) + "\xE2\x80\xA6";
    }

    void Box(int x, int y, int height, const char* fill, const char* stroke)
    {
        mBoxes << "<rect x=\"" << x << "\" y=\"" << y << "\" width=\"" << BoxWidth << "\" height=\""
               << height << "\" rx=\"6\" fill=\"" << fill << "\" stroke=\"" << stroke << "\"/>\n";
    }

    void Write(int x, int y, const std::string& text, const char* style)
    {
        mBoxes << "<text x=\"" << x << "\" y=\"" << y << "\" " << style << "><title>" << Xml(text)
               << "</title>" << Fitting(text) << "</text>\n";
    }

    void DrawPlace(const std::string& place)
    {
        Box(Right, mPlaceY, Row + 6, "#eef4ff", "#7aa7e9");
        Write(Right + 10, mPlaceY + 20, place, "fill=\"#1d2733\"");
        mPlaces[place] = mPlaceY + (Row + 6) / 2;
        mPlaceY += Row + 6 + Gap;
    }

    void DrawModule(const Json& file, std::size_t index)
    {
        const Json classes = file.value("classes", Json::array());
        const bool isFine = file["verdict"] != tVerdict::Broken;
        const int height = Row * (1 + static_cast<int>(classes.size())) + 8;
        mBoxes << "<a href=\"#module" << index << "\" data-module=\"" << index << "\">\n";
        Box(Left, mModuleY, height, isFine ? "#ffffff" : "#fff1f0", isFine ? "#9aa5b1" : "#b42318");
        Write(Left + 10, mModuleY + 18, BareName(file),
              isFine ? "font-weight=\"600\" fill=\"#1d2733\""
                     : "font-weight=\"600\" fill=\"#b42318\"");
        int y = mModuleY + Row;
        for (const Json& each : classes)
        {
            Write(Left + 22, y + 18, Label(each), "fill=\"#1d2733\"");
            DrawLines(file, each, y + 13, index);
            y += Row;
        }
        mBoxes << "</a>\n";
        mModuleY += height + Gap;
    }

    void DrawLines(const Json& file, const Json& each, int y, std::size_t index)
    {
        for (const Json& entry : file.value("filed", Json::array()))
        {
            if (entry["class"] != each["id"])
                continue;
            constexpr int from = Left + BoxWidth;
            constexpr int middle = (from + Right) / 2;
            const int to = mPlaces[Place(entry)];
            mLines << "<path data-module=\"" << index << "\" d=\"M" << from << ' ' << y << " C"
                   << middle << ' ' << y << ' ' << middle << ' ' << to << ' ' << Right << ' ' << to
                   << "\" fill=\"none\" stroke=\"#7aa7e9\" stroke-width=\"1.5\"/>\n";
        }
    }

    std::ostringstream mLines; // under the boxes
    std::ostringstream mBoxes;
    std::map<std::string, int> mPlaces; // the height at which a line ends
    int mModuleY = Gap;
    int mPlaceY = Gap;
};

std::string MakeSvg(const Json& found)
{
    return CDrawing(found).Text();
}

// --- HTML
// -------------------------------------------------------------------------------------------

std::string MakePage(const Json& found)
{
    const auto page =
        std::find_if(Templates.begin(), Templates.end(),
                     [](const Template& each) { return each.Name == "graph/page.html"; });
    // Within a script nothing may look like its end.
    const std::string data =
        Escaped(found.dump(-1, ' ', false, Json::error_handler_t::replace), {{'<', "\\u003C"}});
    std::string text(page->Text);
    for (const auto& [from, to] :
         {std::pair<std::string_view, std::string>("%DATA%", data),
          std::pair<std::string_view, std::string>("%SVG%", MakeSvg(found))})
        text.replace(text.find(from), from.size(), to);
    return text;
}

struct GraphFormat
{
    const char* Name;
    std::string (*Make)(const Json& found);
};

constexpr GraphFormat GraphFormats[] = {{"dot", &MakeDot}, {"svg", &MakeSvg}, {"html", &MakePage}};

int Graph(const GraphOptions& options)
{
    const Json found = ScanPlaces(options.Scan);
    std::string text;
    for (const GraphFormat& format : GraphFormats)
    {
        if (options.Format == format.Name)
            text = format.Make(found);
    }
    if (options.Output.empty())
    {
        PrintRaw(text);
    }
    else
    {
        std::ofstream file(FilePath(options.Output), std::ios::binary);
        file << text;
        if (!file.flush())
            throw CFailure('"' + options.Output + "\" could not be written");
    }
    return ComplainOf(found);
}

} // namespace

void AddGraph(CCommands& commands)
{
    const auto options = std::make_shared<GraphOptions>();
    CLI::App& command = commands.Add(
        "graph",
        "Draw the modules of some folders, their classes, and the categories and levels in which\n"
        "these are filed: as DOT for Graphviz, as SVG, or as one page of HTML with the picture,\na "
        "search, and the details of each module.",
        [options] { return Graph(*options); });
    command
        .add_option("PLACE", options->Scan.Places,
                    "Folders, whose modules (*.dll) are meant, and files")
        ->required()
        ->type_name("");
    command
        .add_option("--format", options->Format, "What is drawn: dot, svg or html; dot without it")
        ->check(CLI::IsMember({"dot", "svg", "html"}))
        ->type_name("FORMAT");
    command.add_option("-o,--output", options->Output, "The file to write, not standard output")
        ->type_name("FILE");
}

} // namespace Tavrik::tHost
