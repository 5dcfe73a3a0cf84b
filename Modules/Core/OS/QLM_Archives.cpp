// Reading of packed files: members of zip archives, gzip and zlib files.

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"

#include <memory>
#include <mutex>
#include <wx/log.h>
#include <wx/wfstream.h>
#include <wx/zipstrm.h>
#include <zlib.h>

namespace {

constexpr size_t BufferSize = 1 << 16;

struct ExtensionList {
    std::mutex lock;
    std::vector<std::string> extensions{"zip"};
};

ExtensionList& Extensions() {
    static ExtensionList& list = *new ExtensionList;
    return list;
}

std::string MemberName(const wxZipEntry& entry) {
    return QLM_NativePath(entry.GetName(wxPATH_UNIX).utf8_str().data());
}

/// The member of that name: the exact one, else the first in byte order that equals it but for case.
std::unique_ptr<wxZipEntry> FindMember(wxZipInputStream& zip, const std::string& inner) {
    std::unique_ptr<wxZipEntry> best;
    while (std::unique_ptr<wxZipEntry> entry{zip.GetNextEntry()}) {
        const std::string name = MemberName(*entry);
        if (entry->IsDir() || QLM_CompareNoCase(name, inner) != 0) continue;
        if (name == inner) return entry;
        if (!best || name < MemberName(*best)) best = std::move(entry);
    }
    return best;
}

/// Copies the opened member; false when it is damaged or the disk is full.
bool CopyMember(wxZipInputStream& zip, FILE* target) {
    std::vector<char> buffer(BufferSize);
    do {
        zip.Read(buffer.data(), buffer.size());
        const size_t read = zip.LastRead();
        if (std::fwrite(buffer.data(), 1, read, target) != read) return false;
    } while (zip.GetLastError() == wxSTREAM_NO_ERROR);
    return zip.GetLastError() == wxSTREAM_EOF;
}

void TellCannotCreate(const std::string& target) {
    const std::string text = "Can not create file '" + target + "'";
    if (QLM_OS::IsMainThread()) QLM_OS::Get().PrintMessageText(text);
    else QLM_LogText(text);
}

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

/// One run of inflate over a file that may hold several gzip members one after another.
class Inflater {
  public:
    explicit Inflater(uint64_t maximum) : left(maximum) { ready = inflateInit2(&z, 15 + 32) == Z_OK; }
    ~Inflater() { if (ready) inflateEnd(&z); }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    /// Empty when the whole file was unpacked, else what was wrong.
    std::string Run(FILE* source, FILE* target) {
        std::vector<Bytef> input(BufferSize), output(BufferSize);
        if (!ready) return "no memory to unpack it";
        bool inside = true; // an empty file is no packed file
        for (;;) {
            z.next_in = input.data();
            z.avail_in = static_cast<uInt>(std::fread(input.data(), 1, input.size(), source));
            if (z.avail_in == 0) return inside ? "it ends too early" : "";
            while (z.avail_in > 0) {
                if (!inside) {
                    if (*z.next_in == 0) { // padding behind the last member
                        ++z.next_in;
                        --z.avail_in;
                        continue;
                    }
                    inflateReset(&z);
                    inside = true;
                }
                if (std::string error = Step(output, target, inside); !error.empty()) return error;
            }
        }
    }

  private:
    /// Inflates what is at hand; `inside` becomes false at the end of a member.
    std::string Step(std::vector<Bytef>& output, FILE* target, bool& inside) {
        do {
            z.next_out = output.data();
            z.avail_out = static_cast<uInt>(output.size());
            const int status = inflate(&z, Z_NO_FLUSH);
            if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR) return "it is damaged";
            const size_t produced = output.size() - z.avail_out;
            if (produced > left) return "it unpacks to far more than it holds";
            left -= produced;
            if (std::fwrite(output.data(), 1, produced, target) != produced) return "the disk is full";
            inside = status != Z_STREAM_END;
        } while (inside && z.avail_out == 0);
        return {};
    }

    z_stream z{};
    uint64_t left; ///< bytes that may still come out
    bool ready = false;
};

} // namespace

void QLM_RegisterArchiveExtension(const std::string& extension) {
    ExtensionList& list = Extensions();
    std::lock_guard guard(list.lock);
    for (const std::string& known : list.extensions)
        if (QLM_CompareNoCase(known, extension) == 0) return;
    list.extensions.push_back(extension);
}

bool QLM_SplitArchivePath(std::string_view path, std::string& archive, std::string& inner) {
    ExtensionList& list = Extensions();
    std::lock_guard guard(list.lock);
    for (size_t end = path.find_first_of("/\\"); end != path.npos; end = path.find_first_of("/\\", end + 1)) {
        const std::string extension = QLM_ExtensionOf(path.substr(0, end));
        for (const std::string& known : list.extensions) {
            if (QLM_CompareNoCase(known, extension) != 0) continue;
            archive = path.substr(0, end);
            inner = path.substr(end + 1);
            return true;
        }
    }
    return false;
}

bool ExtractSingleFileFromZipFile(const std::string& archive, const std::string& inner, const std::string& target) {
    const wxLogNull quiet; // the toolkit would put its own boxes up
    FILE* packed = std::fopen(QLM_ResolveCase(archive).c_str(), "rb");
    if (!packed) return false;
    wxFFileInputStream stream(packed); // takes the file over
    wxZipInputStream zip(stream, wxConvUTF8);
    const std::unique_ptr<wxZipEntry> member = FindMember(zip, QLM_NativePath(inner));
    if (!member || !zip.OpenEntry(*member)) return false;

    QLM_SafeFileWriter writer(target);
    if (!writer.GetStream()) {
        TellCannotCreate(target);
        return false;
    }
    return CopyMember(zip, writer.GetStream()) && writer.Commit();
}

bool QLM_GunzipFile(const std::string& source, const std::string& target, std::string& error, uint64_t maximum) {
    error.clear();
    const std::unique_ptr<FILE, FileCloser> packed(std::fopen(QLM_ResolveCase(source).c_str(), "rb"));
    QLM_SafeFileWriter writer(target);
    if (!packed) error = "it can't be opened";
    else if (!writer.GetStream()) error = "the unpacked file can't be created";
    else error = Inflater(maximum).Run(packed.get(), writer.GetStream());
    if (error.empty() && !writer.Commit()) error = "the unpacked file can't be written";
    return error.empty();
}
