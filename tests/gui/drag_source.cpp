// A window that files are dragged out of, as a file manager's.
// usage: drag_source FILE...

#include <wx/app.h>
#include <wx/dnd.h>
#include <wx/frame.h>
#include <wx/panel.h>

class SourceApp : public wxApp {
  public:
    bool OnInit() override {
        auto* frame = new wxFrame(nullptr, wxID_ANY, "Drag source", wxPoint(1300, 20), wxSize(80, 80));
        auto* panel = new wxPanel(frame);
        panel->Bind(wxEVT_LEFT_DOWN, [this, frame](wxMouseEvent&) {
            wxFileDataObject files;
            for (int i = 1; i < argc; ++i) files.AddFile(argv[i]);
            wxDropSource source(files, frame);
            source.DoDragDrop(wxDrag_CopyOnly);
            frame->Close();
        });
        frame->Show();
        return true;
    }
};

wxIMPLEMENT_APP(SourceApp);
