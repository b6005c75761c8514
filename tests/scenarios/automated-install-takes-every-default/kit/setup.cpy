[install]
MkDir $(docs)/gazette
# At the top level *.bak leaves out notes.BAK too; deeper down case matters, so DRAFT.XCF is copied.
CopyFile $(current_dir)/pages/* *.bak $(docs)/gazette
CopyDir $(current_dir)/pages/img *.xcf $(docs)/gazette
Ini $(current_dir)/index.tmpl $(docs)/gazette/index.html
Chmod $(docs)/gazette/*.html - 640
