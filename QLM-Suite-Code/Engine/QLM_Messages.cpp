#include "Engine/QLM_Messages.h"

#include <array>
#include <cstring>

namespace {

struct NumberedText {
    int number;
    const char* text;
};

// Only the numbers in use; all others read as empty texts.
constexpr NumberedText numberedTexts[] = {
    {17, "Select All"},
    {19, "Select None"},
    {102, "Smooth"},
    {103, "Evens out the bumps of the surface under the brush."},
    {110, "Size"},
    {120, "Main"},
    {121, "Aux"},
    {134, "Hardness"},
    {186, "Are you sure that you want to exit the program?\n\n(all unsaved changes will be lost)"},
    {227, "Processing"},
    {259, "Please choose (or import) an object before proceeding."},
    {294, "The morph '%s' in '%s' is out of sync. It may not work properly as a result."},
    {304, "Are you sure you want to delete the selected item?"},
    {380, "Not all CR2 files are supported. Only basic CR2 files with a single OBJ file and no replacement body "
          "parts may import properly. Even then, some may not, so please confirm this before proceeding with your "
          "project."},
    {381, "Are you sure that you would like to open a new project?\n\nThe current project will be discarded."},
    {388, "Are you sure that you would like to create a new project?\n\nThe current project will be discarded."},
    {399, "Symmetry ON"},
    {400, "Symmetry OFF"},
    {409, "This file contains %d replacement body part(s) that are not supported by Quillmere. As a result, morph "
          "targets created for those parts will not work properly. Proceed at your own risk."},
    {413, "Please make sure that the driver of your video card is up to date. Most display problems are caused by "
          "outdated video drivers."},
    {418, "AutoSave"},
    {427, "Unmorph"},
    {428, "Brings the surface under the brush back to the shape that it has without morphs."},
    {432, "In the object %s, %d (of %d) vertices are not very symmetrical. They may not behave as expected while "
          "editing symmetrically."},
    {434, "Shifted the vertices to the center of symmetry."},
    {508, "Get Symmetry Offset From Selection"},
    {528, "Shift To Center"},
    {538, "Left To Right Symmetry"},
    {540, "Copy the left side to the right side"},
    {542, "Copy the right side to the left side"},
    {544, "All Polygons"},
    {572, "Using the previous tool \"%s\"."},
    {580, "Saving"},
    {610, "Unwelded the vertices of %d object(s)."},
    {614, "An instance of %s is already running."},
    {631, "%s Files"},
    {661, "Please choose a current object before selecting."},
    {673, "Flatten"},
    {674, "Presses the surface under the brush towards a plane."},
    {816, "%s for morph"},
    {819, "Assign Map"},
    {950, "This operation will transfer the deformations from the highlighted morphs to the vertices of the affected "
          "object(s)."},
    {953, "The file...\n\n%sData%cGraphics.dat\n\nis obsolete. Please either perform a full installation of this "
          "software, or if you are installing a patch, please make sure that all of the supporting data files have "
          "been placed in their proper locations."},
    {983, "Zooming the viewport"},
    {991, "Setting the viewport to \"front\""},
    {992, "Setting the viewport to \"back\""},
    {993, "Setting the viewport to \"left\""},
    {994, "Setting the viewport to \"right\""},
    {995, "Setting the viewport to \"top\""},
    {996, "Setting the viewport to \"bottom\""},
    {1020, "Cannot create the file %s"},
    {1021, "Cannot open the file %s"},
    {1029, "Cannot find the BODY node (%d)"},
    {1030, "The original CR2 file does not have a \"FIGURE\" node"},
    {1031, "Cannot find a group to match the actor \"%s\" in this CR2 file"},
    {1033, "The CR2 export was aborted by the user"},
    {1034, "Cannot find a match for the material \"%s\""},
    {1035, "The polygon count used in this Display Group set does not match the current object."},
    {1036, "The vertex count used in this selection set does not match the current object."},
    {1037, "The polygon count used in this selection set does not match the current object. This may or may not "
           "cause issues with the selection set."},
    {1038, "The vertex count used in this morph set does not match the current object."},
    {1039, "The polygon count used in this morph set does not match the current object. This may or may not cause "
           "issues with the morph set."},
    {1048, "Please locate the original CR2 file for this character"},
    {1049, "Exporting the CR2 file %s"},
    {1050, "- Original CR2 file %s"},
    {1053, "Exporting a separate object for each group"},
    {1054, "Exporting the OBJ file %s"},
    {1057, "Duplicated the morph target '%s'"},
    {1058, "Duplicated %d morph targets"},
    {1059, "Baked the morphs into the object(s)."},
    {1062, "Are you sure you want to delete the %d selected items?"},
    {1069, "This OBJ file has no vertices!"},
    {1092, "Loading the project %s"},
    {1093, "Importing the file %s"},
    {1094, "Importing the Selection Set %s"},
    {1095, "Importing the Display Group Set %s"},
    {1096, "Importing the Morph Set %s"},
    {1099, "Saved the project %s"},
    {1100, "Error saving the project"},
    {1118, "Creating a new (empty) project"},
    {1122, "default"},
    {1162, "The '%s' option works best in conjunction with the '%s' option. Are you sure that you want to proceed "
           "without '%s'?"},
    {1163, "The '%s' is set, yet there are currently no deformations applied to the object to adjust the joint "
           "by.\n\nDo you wish to continue?"},
    {1164, "The current state of the object (including morph deformations) will be permanently baked into the "
           "resulting object.\n\nDo you wish to continue?"},
    {1174, "Grow Selection"},
    {1205, "Picker"},
    {1206, "Selects vertices, polygons or objects by clicking on them."},
    {1243, "No morphs were baked."},
    {1325, "New Folder"},
    {1326, "Would you like to clear the existing morphs? (Click 'No' to simply set the morph strengths to zero)"},
    {1454, "Copied the view of the first viewport to \"%s\""},
    {1461, "The viewport \"%s\" is locked."},
    {1538, "Please select at least one vertex in the viewport"},
    {1540, "Please select at least one object in the viewport"},
    {1672, "Use the SHIFT-SPACE hotkey to toggle between the current viewing mode, and Hot Selection View."},
    {1708, "This action cannot be undone. Are you sure that you want to proceed?"},
    {1722, "Quillmere-Pro"},
    {1752, "This action cannot be undone. Also, problems may arise if the polygon count is too high, as you may run "
           "out of RAM."},
    {1753, "There are no objects in the project to export."},
    {1756, "Offset subD in viewport"},
    {1757, "Shows the subdivided surface beside the original in the viewport."},
    {1758, "Replace Original Object(s)"},
    {1759, "Puts the subdivided object(s) in the place of the original object(s)."},
    {1771, "\"%s\" is armed for hotkey assignment. After pressing 'OK', press the key that you wish to assign to "
           "this action.\n\n( Note: This prompt can be disabled in the 'Preferences' window )"},
    {1772, "\"%s\" is armed for hotkey assignment. Press the key that you wish to assign to it."},
    {1773, "Hotkey assignment"},
    {1774, "Press a key to assign it, or ESC to cancel."},
    {1775, "Assign Hotkey"},
    {1791, "The following file already exists...\n\n%s\n\nWould you like to overwrite it, and ALL other files?"},
    {1792, "The texture transfer is finished. Would you like to keep the result?"},
    {1814, "Export has been aborted by the user"},
    {1851, "Unwarp Chisel"},
    {1853, "TransMorph Chisel"},
    {1855, "Unwarp Hammer"},
    {1896, "Please locate the original FBX file for this character.\n\nBy using the original file, Quillmere can "
           "preseve all of the settings ( e.g. rigging ), while 'injecting' the relevant changes ( e.g. Morphs, "
           "textures, UV's ).\n\nIf you would like to export a simple FBX without preserving the original settings, "
           "then choose 'Cancel'."},
    {1908, "This character is not currently supported as a SOURCE file ( OBJ file mismatch ).\n\nPlease install the "
           "appropriate conversion pack to support this character file.\n\nYou may attempt to proceed anyway if you "
           "are sure that source character is indeed correct.\n\nTo proceed, click OK, otherwise click Cancel"},
    {1909, "This character is not currently supported as a DESTINATION file ( OBJ file mismatch ).\n\nPlease install "
           "the appropriate conversion pack to support this character file.\n\nYou may attempt to proceed anyway if "
           "you are sure that destination character is indeed correct.\n\nTo proceed, click OK, otherwise click "
           "CANCEL"},
    {1919, "Save the following project?\n\n%s\n"},
    {1920, "Cancelled saving project"},
    {1924, "This file appears to be a Tavik companion file ( points to python/DSON script ) and not a native Tavik "
           "file. Please try exporting the file out of DAZ studio instead."},
    {1925, "No supported geometry data was found in the file\n\n%s\n\nso it cannot be opened."},
    {1936, "Hair Options"},
    {1938, "Hair Strand"},
    {1940, "Hair Growth Surface"},
    {1943, "Please choose a current object in the manager ( with red indicator )"},
    {1944, "The current object has no hair growth material."},
    {1945, "Current Hair Strand Material"},
    {1947, "Should the highlighted items be treated as fixed assets?"},
    {1957, "No items were exported"},
    {1958, "Exported the DSF file %s"},
    {1959, "Exported the DUF file %s"},
    {1960, "Cannot create path %s"},
    {1976, "Retain Shape"},
    {1977, "Retain Shape\n- Helps to prevent the surface from flattening out"},
    {1978, "Post Unwarp"},
    {1979, "Relaxes the stretched parts of the surface after each stroke."},
    {1980, "Post Smooth"},
    {1981, "Smooths the affected surface after each stroke."},
    {1990, "Cannot find an OBJ/OBZ referenced in this CR2 file, therefore, it cannot be opened."},
    {1991, "Please click on the main symmetric side to create the hair strands."},
    {1992, "Error importing the file %s"},
    {1993, "The current morph strength must be 100% before deforming it."},
    {1997, "Flip Hair Growth Direction"},
    {1999, "Rotate Hair Growth Direction"},
    {2010, "Preset File(s)"},
    {2011, "Texture Files"},
    {2012, "Enhanced Filtering"},
    {2013, "Enhanced Filtering\n- Reduces visual artifacts due to resolution and/or geometric issues beteen the "
           "input and output objects."},
};

using MessageTable = std::array<const char*, QLM_MessageCount>;

// A number out of range or out of order is an error of the compiler.
constexpr MessageTable BuildTable() {
    MessageTable table{};
    for (const char*& text : table) text = "";
    int previous = -1;
    for (const NumberedText& entry : numberedTexts) {
        if (entry.number <= previous) throw "numbers must rise";
        table.at(static_cast<size_t>(entry.number)) = entry.text;
        previous = entry.number;
    }
    return table;
}

constexpr MessageTable messages = BuildTable();

} // namespace

const char* QLM_GetString(int index) {
    if (index < 0 || index >= QLM_MessageCount) return "Error";
    const char* text = messages[static_cast<size_t>(index)];
    return std::strncmp(text, "xx ", 3) == 0 ? text + 3 : text;
}
