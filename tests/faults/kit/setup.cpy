[install]
MkDir $(place)/one/two
MkDir $(conf_dir)
MkDir $(empty_dir)
CopyFile $(current_dir)/files/*.txt *.draft,skip* $(place)
CopyFile $(current_dir)/files/big.bin - $(target)/site* chosen
CopyDir $(current_dir)/files/tree *.draft $(place)
CopyDir $(current_dir)/files/tree/* *.draft,deep $(place)/one chosen true
Ini $(current_dir)/files/site.tmpl $(conf_dir)/site.conf
Ini $(current_dir)/files/site.tmpl $(log_path)
WFile $(place)/title title
WFile $(place)/draft draft
Rename $(place)/draft $(place)/final
Exist $(place)/tree/deep tree_there
Error tree_there The tree did not arrive.
Chmod $(place)/tree *.html 750 tree_there
Chmod $(place)/*.txt - 640
Chown $(place)/tree - $(owner):$(group)
Chown $(place)/title - $(owner)
RFile $(place)/two.txt nothing
RmFile $(place)/one/note.html -
MkDir $(target)/before/obsolete/once-more
RmDir $(target)/before/obsolete keep*
Exist $(target)/before/obsolete gone
WFile $(place)/never heading never
WFile $(place)/done stamp

[upgrade]
Exist $(place)/done site_there
RmFile $(place)/done - site_there
CopyFile $(current_dir)/files/*.txt skip* $(place)
CopyDir $(current_dir)/files/tree *.draft $(place)
Rename $(conf_dir)/site.conf $(conf_dir)/site.conf.old
Ini $(current_dir)/files/site.tmpl $(conf_dir)/site.conf
Chmod $(place)/tree - 755
RmDir $(place)/one -
WFile $(place)/done stamp

[remove]
RmFile $(place)/*.txt keep*
RmFile $(place)/nothing-of-that-name -
RmDir $(place)/tree -
RmDir $(place) -
RmFile $(conf_dir)/* *.old
RmDir $(empty_dir) -

[everything]
MkDir $(target)/again/below
CopyFile $(current_dir)/files/* *.draft $(target)/again
CopyDir $(current_dir)/files/* *.draft $(target)/again
Ini $(current_dir)/files/site.tmpl $(target)/again/conf
Rename $(target)/again/conf $(target)/again/renamed
Rename $(current_dir)/files/one.txt.missing $(target)/again
Exist $(target)/again tree_there
Chown $(target)/again/tree/* - $(owner):$(group)
Chmod $(target)/again/tree/* - 711
Error never This line always fails.
WFile $(target)/again/written title
RFile $(target)/again/two.txt nothing
RmFile $(target)/again/one.txt -
RmDir $(target)/again/tree/deep keep*
Frobnicate a b c
