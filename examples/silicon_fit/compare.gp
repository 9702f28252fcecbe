# Draws silicon_res0.txt: a row is a reflection, with its measured and its calculated intensity, and their
# difference in units of sigma. Points outside the disk have no sigma and are left out.
points = "< awk '\
/#num_pix,/     { side = $2 } \
/^RF\\{/         { n = -1; next } \
/^}RF/          { row++ } \
/#h k l/        { n = 0 } \
/^#/            { next } \
NF == 3 && n++ >= 0 && $3 > 0 { print (n - 1) % side, int((n - 1) / side) - row * (side + 2), $1, $2, ($1 - $2) / $3 } \
' silicon_res0.txt"
set term png size 560,760
set output "compare.png"
set multiplot layout 1,3 margins 0.02,0.98,0.14,0.88 spacing 0.02 title "Si [1 1 1], 100 kV: 0 0 0, 2 -2 0, -2 2 0, 4 -2 -2 from top to bottom"
set size ratio -1
set border 0
unset tics
set colorbox horizontal user origin screen 0.08,0.08 size screen 0.5,0.025
set cblabel "sqrt(intensity)"
set cbtics
set palette gray
set style fill solid noborder
set cbrange [0:130]
set title "measured"
plot points using 1:2:(0.5):(0.5):($3 > 0 ? sqrt($3) : 0) with boxxyerror linecolor palette notitle
unset colorbox
set title "calculated"
plot points using 1:2:(0.5):(0.5):(sqrt($4)) with boxxyerror linecolor palette notitle
set colorbox horizontal user origin screen 0.71,0.08 size screen 0.22,0.025
set cblabel "difference / sigma"
set cbrange [-4:4]
set cbtics 2
set title "difference"
plot points using 1:2:(0.5):(0.5):5 with boxxyerror linecolor palette notitle
