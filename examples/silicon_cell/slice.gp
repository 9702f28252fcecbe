# Draws the electron density in the plane x = y of the cell, which holds atoms and the bonds between
# them: of density_ed.3ed, behind its three head lines, the lines with i = j.
set term png size 640,420
set output "slice.png"
set title "Si, electron density in the plane x = y [electrons/A^3]"
set view map
set size ratio -1
set xrange [0:5.431*sqrt(2)]
set yrange [0:5.431]
set xlabel "along [1 1 0] [A]"
set ylabel "along [0 0 1] [A]"
set cbrange [0:2]
step = 5.431 / 64
plot "< awk 'NR == 3 { n = $1 } NR > 3 && int((NR - 4) / n) == (NR - 4) % n' density_ed.3ed" \
    matrix using ($2*step*sqrt(2)):($1*step):3 with image notitle
