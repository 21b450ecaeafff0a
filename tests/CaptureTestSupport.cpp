#include "CaptureTestSupport.h"

#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <variant>

namespace Agent {

namespace {

std::string render(MrouteEvent const& e) {
   std::ostringstream out;
   out << (e.deleted ? "del " : "set ") << e.vrf << ' ' << e.key
       << (e.resolved ? " iif=" : " unresolved iif=") << e.iif << " oifs=";
   for (std::size_t i = 0; i < e.oifs.size(); ++i)
      out << (i ? "," : "") << e.oifs[i];
   return out.str();
}

std::string render(LinkEvent const& e) {
   std::ostringstream out;
   out << (e.deleted ? "del " : "link ") << e.ifindex << ' ' << e.intf << ' ' << e.status
       << (e.adminUp ? " adminUp" : "");
   return out.str();
}

std::string render(SnapshotEvent const& e) {
   std::string out = "snapshot";
   for (auto const& scope : e.scopes) {
      out += scope.family == Lnet::IpFamily::v4 ? " v4 " : " v6 ";
      out += scope.vrf.name();
   }
   for (MrouteEvent const& route : e.routes)
      out += "; " + render(route);
   return out;
}

}  // namespace

std::string render(CaptureEvent const& event) {
   return std::visit([](auto const& e) { return render(e); }, event);
}

std::vector<std::string> readAll(CaptureReader& reader) {
   std::vector<std::string> out;
   CaptureEvent event;
   while (true) {
      switch (reader.next(event)) {
         case CaptureReader::Result::event: {
            std::ostringstream text;
            text << timeOf(event).time << ' ' << render(event);
            out.push_back(text.str());
            break;
         }
         case CaptureReader::Result::error:
            out.push_back("error " + reader.error().toString());
            break;
         case CaptureReader::Result::end:
            return out;
      }
   }
}

std::string gzip(std::string_view text) {
   z_stream z{};
   deflateInit2(&z, Z_BEST_COMPRESSION, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
   std::string out(deflateBound(&z, text.size()) + 64, '\0');
   z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
   z.avail_in = static_cast<uInt>(text.size());
   z.next_out = reinterpret_cast<Bytef*>(out.data());
   z.avail_out = static_cast<uInt>(out.size());
   deflate(&z, Z_FINISH);
   out.resize(z.total_out);
   deflateEnd(&z);
   return out;
}

std::string contentOf(std::string const& path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), {}};
}

TempDir::TempDir() {
   path_ = (std::filesystem::temp_directory_path() / "velmroute-XXXXXX").string();
   ::mkdtemp(path_.data());
}

TempDir::~TempDir() {
   std::filesystem::remove_all(path_);
}

std::string TempDir::file(std::string const& name, std::string_view content) const {
   std::ofstream(path(name), std::ios::binary) << content;
   return path(name);
}

}  // namespace Agent
